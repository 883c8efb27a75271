// Transactions without end: mixed sizes, random faults of the device and of the surroundings, every reply
// compared whole. Ends with 1 at the first mismatch, leak or growth.
//
//   talvex-soak LIBRARY DEVICE [--count N] [--seconds N] [--seed N]
//
// Runs in the working directory, which it fills with SAT.ini and logs. Growth is judged from the first tenth
// of the run on, but not before 2,000 transactions.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "reliability/child_device.h"
#include "reliability/planned_line.h"

namespace {

namespace fs = std::filesystem;
using planned::Fault;
using planned::Kind;
using Seconds = std::chrono::duration<double>;

constexpr long kWarmUp = 2000;
#ifdef __SANITIZE_ADDRESS__
constexpr long kAllowedGrowthKib =
    65536;  // what is freed stays in quarantine; leaks are the sanitizer's to find
#else
constexpr long kAllowedGrowthKib = 512;
#endif
constexpr long kTransactionsPerLook = 10000;

// How often the byte behind a stray STX may come too late.
constexpr unsigned long kLateSeconds = 5;
constexpr unsigned long kTransactionsPerLateSecond = 10000;

// The port as the library knows it: a link, so that another device can come back under its name. The library
// takes only names with "/dev/" in them for ports.
constexpr char kPort[] = "./dev/port0";
constexpr char kResults[] = "Cupons";

struct Options {
  std::string library;
  std::string device;
  long count = 10000;
  double seconds = 1e9;
  unsigned long seed = 1;
};

[[noreturn]] void refuse_options(const char* program) {
  std::fprintf(stderr, "usage: %s LIBRARY DEVICE [--count N] [--seconds N] [--seed N]\n", program);
  std::exit(2);
}

// A whole number above zero, and nothing else.
bool is_number(const char* text, unsigned long& number) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, number);
  return error == std::errc() && stop == end && number > 0 && number <= 1UL << 40;
}

Options options_of(int argc, char** argv) {
  if (argc < 3 || argc % 2 == 0) refuse_options(argv[0]);
  Options options{argv[1], argv[2]};
  for (int i = 3; i < argc; i += 2) {
    const std::string name = argv[i];
    unsigned long number = 0;
    if (!is_number(argv[i + 1], number)) refuse_options(argv[0]);
    if (name == "--count") {
      options.count = static_cast<long>(number);
    } else if (name == "--seconds") {
      options.seconds = static_cast<double>(number);
      options.count = 1L << 40;
    } else if (name == "--seed") {
      options.seed = number;
    } else {
      refuse_options(argv[0]);
    }
  }
  return options;
}

struct Library {
  using Query = char* (*)(int);
  using Status = char* (*)(int, const char*);
  using Sale = char* (*)(int, const char*, const char*);
  using Version = char* (*)();
  Query query;
  Status status;
  Sale sale;
  Version version;

  explicit Library(const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(2);
    }
    query = reinterpret_cast<Query>(dlsym(handle, "ConsultarSAT"));
    status = reinterpret_cast<Status>(dlsym(handle, "ConsultarStatusOperacional"));
    sale = reinterpret_cast<Sale>(dlsym(handle, "EnviarDadosVenda"));
    version = reinterpret_cast<Version>(dlsym(handle, "VersaoDllTalvex"));
  }
};

// ---- What must not grow -----------------------------------------------------------------------------

struct Resources {
  long descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  long threads = std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
  long resident_kib = 0;

  Resources() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
      if (word == "RssAnon:") status >> resident_kib;
    }
  }
};

// ---- The surroundings -------------------------------------------------------------------------------

class Surroundings {
 public:
  Surroundings() {
    fs::create_directory(kResults);
    fs::create_directory("dev");
    configure('1', false);
  }

  // A changed file is one with another modification time, in whole seconds.
  void configure(char log_mode, bool saves_results) {
    saves_results_ = saves_results;
    std::ofstream("SAT.ini", std::ios::trunc)
        << "[SERIAL_PORT_CONFIG]\nFixarPorta=" << kPort
        << "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n[ARVOLEN]\nPathLinux=" << kResults
        << "\nEnable=" << (saves_results ? '1' : '0')
        << "\n[LOG]\nLogFilePath=Log\nLogFileName=\nLogFileMaxSize=200000\nLogMode=" << log_mode << "\n";
    const timespec times[] = {{++stamp_, 0}, {stamp_, 0}};
    utimensat(AT_FDCWD, "SAT.ini", times, 0);
  }

  bool saves_results() const { return saves_results_; }

  // The one result file that there is, which is taken away; anything else is no result.
  static std::string take_result() {
    std::string result;
    int files = 0;
    for (const auto& entry : fs::directory_iterator(kResults)) {
      std::ifstream file(entry.path(), std::ios::binary);
      result.assign(std::istreambuf_iterator<char>(file), {});
      fs::remove(entry.path());
      ++files;
    }
    return files == 1 ? result : std::to_string(files) + " result files";
  }

  static void remove_logs() { fs::remove_all("Log"); }
  static void remove_port_file() { fs::remove("SAT.conf"); }

  // Signals from now on, or no more.
  static void interrupt_every(int microseconds) {
    const itimerval interval{{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }

 private:
  bool saves_results_ = false;
  time_t stamp_ = 1000000000;
};

void ignore_signal(int) {}

// Another process's lock, as the library sees it: a lock on another opening of the port.
class PortHolder {
 public:
  explicit PortHolder(const std::string& port) : port_(open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (flock(port_, LOCK_EX | LOCK_NB) != 0) std::abort();
  }
  ~PortHolder() { close(port_); }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;

 private:
  int port_;
};

// ---- One transaction --------------------------------------------------------------------------------

class Run {
 public:
  explicit Run(const Options& options) : options_(options), library_(options.library), random_(options.seed) {
    connect_device();
    std::vector<int> weights;
    weights.reserve(std::size(planned::kKinds));
    for (const Kind& kind : planned::kKinds) weights.push_back(kind.weight);
    kinds_ = std::discrete_distribution<std::size_t>(weights.begin(), weights.end());
  }

  int play() {
    const auto start = std::chrono::steady_clock::now();
    Resources first = resources();
    const long warm_up = std::max(kWarmUp, std::min(options_.count / 10, 10 * kTransactionsPerLook));
    for (; made_ < options_.count && !failed_; ++made_) {
      if (made_ == warm_up) first = resources();
      if (made_ % kTransactionsPerLook == 0) {
        if (Seconds(std::chrono::steady_clock::now() - start).count() > options_.seconds) break;
        if (made_ > warm_up) judge_growth(first);
      }
      disturb();
      transact();
    }
    Surroundings::interrupt_every(0);
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    if (made_ > warm_up) judge_growth(first);
    const Resources last = resources();
    remove_device();
    if (count_.interrupted > late_seconds_)
      fail("the device saw exchanges broken off: " + std::to_string(count_.interrupted));
    if (count_.damaged > 0) fail("the device saw damaged commands: " + std::to_string(count_.damaged));
    report(seconds, first, last);
    return failed_ ? 1 : 0;
  }

 private:
  unsigned long draw(unsigned long limit) {
    return std::uniform_int_distribution<unsigned long>(0, limit - 1)(random_);
  }
  bool one_in(unsigned long times) { return draw(times) == 0; }

  // Mostly small; some of several blocks, and the lengths around the ends of blocks.
  std::size_t draw_length() {
    switch (draw(1000)) {
      case 0:
        return planned::kBlock - 3 + draw(6);
      case 1:
        return 2 * planned::kBlock - 3 + draw(6);
      case 2:
        return 20000 + draw(60000);
      default:
        return draw(100) < 90 ? draw(300) : draw(4000);
    }
  }

  void disturb() {
    if (one_in(500)) surroundings_.configure("0111112345"[draw(10)], one_in(4)), ++disturbances_;
    if (one_in(2000)) Surroundings::remove_logs(), ++disturbances_;
    if (one_in(2000)) Surroundings::remove_port_file(), ++disturbances_;
    if (one_in(1000))
      Surroundings::interrupt_every(one_in(2) ? 0 : 300 + static_cast<int>(draw(3000))), ++disturbances_;
    if (one_in(3000)) replace_device();
  }

  void connect_device() {
    device_.emplace(options_.device);
    fs::create_symlink(device_->port(), kPort);
  }

  // The name goes first: its number may soon be another's.
  void remove_device() {
    fs::remove(kPort);
    const DeviceCount count = device_->stop();
    count_.commands += count.commands;
    count_.damaged += count.damaged;
    count_.interrupted += count.interrupted;
    device_.reset();
  }

  // A device that hangs up, is missed by one call, and comes back under its name.
  void replace_device() {
    Surroundings::interrupt_every(0);
    remove_device();
    const std::string missing =
        std::string("SAT Erro[-02000]Lnx SAT nao encontrado Dev[") + kPort + "] L[2254] F[Communicate]";
    check(library_.query(0), missing, nullptr, Fault::kNone);
    connect_device();
    ++replacements_;
  }

  void transact() {
    const int session = static_cast<int>(draw(1000000));
    char number[8];
    std::snprintf(number, sizeof number, "%06d", session);
    if (one_in(300)) return make_busy_call(session);
    if (one_in(20))
      return check(library_.query(session), planned::reply_text(number, 0), nullptr, Fault::kNone);

    planned::Plan plan{static_cast<Fault>(kinds_(random_)), draw_length()};
    if (plan.fault == Fault::kSingleBytes || plan.fault == Fault::kGap) plan.reply_length %= 300;
    const Kind& kind = planned::kKinds.at(static_cast<std::size_t>(plan.fault));
    ++times_[static_cast<std::size_t>(plan.fault)];
    const std::string code = planned::activation_code(plan);
    char* reply;
    if (one_in(3)) {
      const std::string data(draw_length(), static_cast<char>('A' + session % 26));
      reply = library_.sale(session, code.c_str(), data.c_str());
      bytes_ += data.size();
      if (surroundings_.saves_results()) check_result(reply);
    } else {
      reply = library_.status(session, code.c_str());
    }
    check(reply, planned::reply_text(number, plan.reply_length), &kind, plan.fault);
  }

  void check_result(const char* reply) {
    ++results_;
    const std::string result = Surroundings::take_result();
    if (result != reply)
      fail("transaction " + std::to_string(made_) + ": the result file holds\n  " + result.substr(0, 200));
  }

  void make_busy_call(int session) {
    const PortHolder holder(device_->port());
    const std::string busy = std::to_string(session) + "|08098|SAT em processamento, tente novamente.||";
    ++busy_;
    check(library_.query(session), busy, nullptr, Fault::kNone);
  }

  void check(const char* reply, const std::string& expected, const Kind* kind, Fault fault) {
    bytes_ += std::strlen(reply);
    if (kind == nullptr || kind->failure == nullptr) {
      if (reply == expected) return;
      // The second byte may come too late behind a stray STX; then the call fails as it does behind a lone
      // one.
      const bool stray = fault == Fault::kStxNak || fault == Fault::kStxEtx || fault == Fault::kStxAck;
      if (stray && failure_text("-00002", true) == reply) {
        ++late_seconds_;
        if (late_seconds_ <= kLateSeconds + static_cast<unsigned long>(made_) / kTransactionsPerLateSecond)
          return;
      }
    } else if (failure_text(kind->failure, kind->failure_of_sending) == reply) {
      return;
    }
    fail("transaction " + std::to_string(made_) + ", fault " + (kind != nullptr ? kind->name : "none") +
         ":\n  expected " +
         (kind != nullptr && kind->failure != nullptr ? kind->failure : expected.substr(0, 200)) +
         "\n  got      " + std::string(reply).substr(0, 200));
  }

  std::string failure_text(const char* code, bool of_sending) const {
    const std::string start = std::string("SAT Erro[") + code + "]Lnx ";
    return of_sending
               ? start + "Dev[" + kPort + "] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]"
               : start + "SAT  Dev[" + kPort +
                     "] falhou na recepcao da resposta L[2324] F[Communicate] LibVer[23-JUL-2020]";
  }

  // Between a call without a device and the next one not even the protocol log is open.
  Resources resources() const {
    library_.version();
    return {};
  }

  void judge_growth(const Resources& first) {
    const Resources now = resources();
    if (now.descriptors > first.descriptors) fail("descriptors have grown");
    if (now.threads > first.threads) fail("threads have grown");
    if (now.resident_kib > first.resident_kib + kAllowedGrowthKib)
      fail("memory has grown from " + std::to_string(first.resident_kib) + " to " +
           std::to_string(now.resident_kib) + " KiB");
  }

  void fail(const std::string& reason) {
    std::printf("FAILED: %s\n", reason.c_str());
    failed_ = true;
  }

  void report(double seconds, const Resources& first, const Resources& last) const {
    std::printf("transactions            %ld\n", made_);
    std::printf("seconds                 %.1f\n", seconds);
    std::printf("transactions per second %.0f\n", static_cast<double>(made_) / seconds);
    std::printf("seed                    %lu\n", options_.seed);
    std::printf("megabytes moved         %.1f\n", static_cast<double>(bytes_) / 1e6);
    for (const Kind& kind : planned::kKinds) {
      std::printf("  %-30s %ld\n", kind.name, times_[static_cast<std::size_t>(kind.fault)]);
    }
    std::printf("  %-30s %ld\n", "port held by another", busy_);
    std::printf("  %-30s %ld\n", "changes of the surroundings", disturbances_);
    std::printf("  %-30s %ld\n", "device gone and back", replacements_);
    std::printf("  %-30s %ld\n", "result files compared", results_);
    std::printf("late bytes behind an STX  %lu\n", late_seconds_);
    std::printf("commands at the device  %lu, damaged %lu, broken off %lu\n", count_.commands, count_.damaged,
                count_.interrupted);
    std::printf("descriptors             %ld at first, %ld at last\n", first.descriptors, last.descriptors);
    std::printf("anonymous memory        %ld KiB at first, %ld KiB at last\n", first.resident_kib,
                last.resident_kib);
    std::printf("%s\n", failed_ ? "FAILED" : "PASSED");
  }

  Options options_;
  Library library_;
  std::optional<ChildDevice> device_;
  DeviceCount count_;
  Surroundings surroundings_;
  std::mt19937_64 random_;
  std::discrete_distribution<std::size_t> kinds_;
  long made_ = 0;
  long busy_ = 0;
  long disturbances_ = 0;
  long replacements_ = 0;
  long results_ = 0;
  long times_[planned::kKinds.size()] = {};
  unsigned long late_seconds_ = 0;
  unsigned long bytes_ = 0;
  bool failed_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  struct sigaction action {};
  action.sa_handler = ignore_signal;  // without SA_RESTART: every slow call is interrupted
  sigaction(SIGALRM, &action, nullptr);
  try {
    return Run(options_of(argc, argv)).play();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
