#include "terminal/settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace satctl {

namespace {

constexpr std::size_t kPieceSize = 65536;

std::optional<std::string> read_all(int descriptor) {
  std::string content;
  std::vector<char> piece(kPieceSize);
  while (true) {
    const ssize_t count = read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return content;
    content.append(piece.data(), static_cast<std::size_t>(count));
  }
}

bool write_and_close(int descriptor, const std::string& content) {
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = write(descriptor, content.data() + done, content.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  const bool whole = done == content.size() && fsync(descriptor) == 0;
  return close(descriptor) == 0 && whole;
}

}  // namespace

std::optional<std::string> read_file(const std::filesystem::path& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  auto content = read_all(descriptor);
  close(descriptor);
  return content;
}

std::optional<std::string> read_regular_file(const std::filesystem::path& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
  if (descriptor < 0) return std::nullopt;
  struct stat opened {};
  const bool regular = fstat(descriptor, &opened) == 0 && S_ISREG(opened.st_mode);
  auto content = regular ? read_all(descriptor) : std::nullopt;
  close(descriptor);
  return content;
}

std::string read_argument(const std::string& argument) {
  std::optional<std::string> content = argument;
  if (argument == "-")
    content = read_all(STDIN_FILENO);
  else if (argument.starts_with('@'))
    content = read_file(argument.substr(1));
  if (!content) {
    throw UsageError(
        fill({"{}: cannot be read: {}", "{}: não pode ser lido: {}"}, {argument, std::strerror(errno)}));
  }
  return *content;
}

bool replace_file(const std::filesystem::path& path, const std::string& content) {
  struct stat old {};
  const bool exists = stat(path.c_str(), &old) == 0;
  std::string name = path.string() + ".XXXXXX";
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return false;
  const mode_t mask = umask(0);
  umask(mask);
  constexpr mode_t kNewFileMode = 0666, kPermissions = 07777;
  bool done = fchmod(descriptor, exists ? old.st_mode & kPermissions : kNewFileMode & ~mask) == 0;
  if (exists && fchown(descriptor, old.st_uid, old.st_gid) != 0 && errno != EPERM) done = false;
  done = write_and_close(descriptor, content) && done;
  done = done && rename(name.c_str(), path.c_str()) == 0;
  if (!done) {
    const int reason = errno;
    unlink(name.c_str());
    errno = reason;
  }
  return done;
}

void enter(const std::filesystem::path& folder) {
  if (chdir(folder.c_str()) == 0) return;
  throw UsageError(fill({"The folder {} cannot be entered: {}", "Não foi possível entrar na pasta {}: {}"},
                        {folder.string(), std::strerror(errno)}));
}

}  // namespace satctl
