// The host program of the benchmark: loads the library as a till does and makes one kind of call.
//
//   bench-host LIBRARY ACTIVITY CASE CALLS [PORT]
//
//   ACTIVITY  pairs    library and floor in turn, each call measured; PORT is the floor's
//             library  the same calls of the library alone
//             floor    the same transactions of the floor alone
//             idle     no call at all
//   CASE      small | sale | large | long-reply | waiting | no-device | send:BYTES
//
// Prints one JSON object: nanoseconds of every call, and the peak resident memory in kB. It runs in a folder
// with a SAT.ini; the library writes its logs there.
#include <dlfcn.h>
#include <sys/resource.h>
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "floor.h"
#include "line_protocol.h"

namespace {

constexpr int kSession = 42;
constexpr std::size_t kReplyCapacity = 8 * 1024 * 1024;

// ---- The transactions -------------------------------------------------------------------------------

struct Call {
  std::function<const char*()> run;
  std::string command;  // the text that it sends
};

class Library {
 public:
  explicit Library(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
    query_ = function<char*(int)>("ConsultarSAT");
    status_ = function<char*(int, const char*)>("ConsultarStatusOperacional");
    sale_ = function<char*(int, const char*, const char*)>("EnviarDadosVenda");
    logs_ = function<char*(int, const char*)>("ExtrairLogs");
  }

  // The activation code tells the device which reply is wanted.
  Call query() const {
    return {[this] { return query_(kSession); }, "ConsultarSAT|000042"};
  }
  Call status(const std::string& code) const {
    return {[this, code] { return status_(kSession, code.c_str()); },
            "ConsultarStatusOperacional|000042|" + code};
  }
  Call logs(const std::string& code) const {
    return {[this, code] { return logs_(kSession, code.c_str()); }, "ExtrairLogs|000042|" + code};
  }
  Call sale(const std::string& code, std::size_t size) const {
    const std::string data(size, 'v');
    return {[this, code, data] { return sale_(kSession, code.c_str(), data.c_str()); },
            "EnviarDadosVenda|000042|" + code + "|" + data};
  }

 private:
  template <typename Signature>
  Signature* function(const char* name) const {
    void* address = dlsym(handle_, name);
    if (address == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<Signature*>(address);
  }

  void* handle_;
  char* (*query_)(int);
  char* (*status_)(int, const char*);
  char* (*sale_)(int, const char*, const char*);
  char* (*logs_)(int, const char*);
};

Call call_of(const Library& library, const std::string& name) {
  if (name == "small") return library.query();
  if (name == "sale") return library.sale("R9000", 8000);
  if (name == "large") return library.sale("1", 1'500'000);
  if (name == "long-reply") return library.logs("R2000000");
  if (name == "waiting") return library.status("W1000");
  if (name.starts_with("send:")) return library.sale("1", std::stoul(name.substr(5)));
  throw std::runtime_error("unknown case " + name);
}

// ---- Measuring --------------------------------------------------------------------------------------

std::int64_t nanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

std::int64_t nanoseconds(const timeval& time) {
  return (time.tv_sec * std::int64_t{1'000'000} + time.tv_usec) * 1000;
}

std::int64_t cpu_of_children() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime);
}

struct Costs {
  std::vector<std::int64_t> wall, cpu, children;

  template <typename Run>
  void measure(const Run& run) {
    const std::int64_t children_before = cpu_of_children();
    const std::int64_t cpu_before = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    const std::int64_t before = nanoseconds(CLOCK_MONOTONIC);
    run();
    wall.push_back(nanoseconds(CLOCK_MONOTONIC) - before);
    cpu.push_back(nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpu_before);
    children.push_back(cpu_of_children() - children_before);
  }

  nlohmann::json json() const { return {{"wall", wall}, {"cpu", cpu}, {"children", children}}; }
};

// Unlike ru_maxrss not a heritage of the process that started this one.
long peak_memory_kb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  throw std::runtime_error("no VmHWM in /proc/self/status");
}

void expect_reply(const char* reply, const std::string& name) {
  if (std::string_view(reply).starts_with("000042|08000|")) return;
  throw std::runtime_error(name + " got \"" + std::string(reply).substr(0, 200) + '"');
}

void run(const Library& library, const std::string& activity, const std::string& name, int calls,
         const std::string& port) {
  const bool absent = name == "no-device";
  const Call call = call_of(library, absent ? "small" : name);
  const std::string frame = bench::frame(call.command);
  std::vector<char> buffer;

  Costs of_library, of_floor;
  const auto call_library = [&] {
    of_library.measure([&] {
      const char* reply = call.run();
      if (!absent) expect_reply(reply, "the library");
    });
  };
  const auto call_floor = [&] {
    buffer.resize(kReplyCapacity);
    of_floor.measure([&] { bench::floor_call(port.c_str(), frame, buffer.data(), buffer.size()); });
    expect_reply(buffer.data() + 1, "the floor");
  };
  for (int i = 0; i < calls; ++i) {
    if (activity == "pairs" || activity == "library") call_library();
    if (activity == "pairs" || activity == "floor") call_floor();
  }
  const nlohmann::json result = {
      {"library", of_library.json()}, {"floor", of_floor.json()}, {"peak_kb", peak_memory_kb()}};
  std::printf("%s\n", result.dump().c_str());
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 5) {
    std::fprintf(stderr, "usage: bench-host LIBRARY pairs|library|floor|idle CASE CALLS [PORT]\n");
    return 2;
  }
  const Library library(arguments[1]);
  run(library, arguments[2], arguments[3], std::atoi(arguments[4]), count > 5 ? arguments[5] : "");
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench-host: %s\n", error.what());
  return 1;
}
