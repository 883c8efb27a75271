#include "device/state_file.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>

namespace emulator {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& what, const std::string& path) {
  throw StateError(what + " " + path + ": " + std::generic_category().message(errno));
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

void write_all(int fd, const std::string& text, const std::string& path) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) fail("cannot write", path);
    done += static_cast<std::size_t>(count);
  }
}

// The rename itself is on the disk once the directory is.
void flush_directory(const std::string& path) {
  const auto parent = fs::absolute(path).parent_path();
  const Descriptor directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0 || fsync(directory.get()) != 0) fail("cannot flush the directory of", path);
}

}  // namespace

StateFile::StateFile(std::string path) : path_(std::move(path)) {
  if (!path_.empty()) claim();
}

StateFile::~StateFile() {
  if (claim_ >= 0) close(claim_);
}

// The file itself is replaced with every state, so no lock on it would last. An abstract socket is a name
// that one process can hold and that goes away with it.
void StateFile::claim() {
  std::error_code ignored;
  const std::string name = fs::weakly_canonical(fs::absolute(path_), ignored).string();
  char claim_name[64];
  const int size = std::snprintf(claim_name, sizeof claim_name, "sat-emulator-state-%016zx",
                                 std::hash<std::string>{}(name));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, claim_name, static_cast<std::size_t>(size));
  claim_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto length =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(size));
  if (claim_ < 0 || bind(claim_, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    if (errno == EADDRINUSE) throw StateError("another emulator uses the state file " + path_);
    fail("cannot claim", path_);
  }
}

std::optional<DeviceState> StateFile::load() const {
  if (!keeps() || !fs::exists(path_)) return std::nullopt;
  std::ifstream file(path_, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file && !file.eof()) fail("cannot read", path_);
  try {
    return from_json_text(text);
  } catch (const nlohmann::json::parse_error& error) {
    // Its own text quotes what it read: activation codes.
    throw StateError("the state file " + path_ + " is not understood: no JSON at byte " +
                     std::to_string(error.byte));
  } catch (const std::exception& error) {
    throw StateError("the state file " + path_ + " is not understood: " + error.what());
  }
}

void StateFile::save(const DeviceState& state) const {
  if (!keeps()) return;
  const std::string beside = path_ + ".new";
  {
    // It holds activation codes and a private key: a new file, for its owner only, whatever was left there.
    unlink(beside.c_str());
    const Descriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file.get() < 0) fail("cannot create", beside);
    write_all(file.get(), to_json_text(state), beside);
    if (fsync(file.get()) != 0) fail("cannot flush", beside);
  }
  if (rename(beside.c_str(), path_.c_str()) != 0) fail("cannot replace", path_);
  flush_directory(path_);
}

}  // namespace emulator
