// Loading and unloading the library at run time, as tills do: nothing is seen of either.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/scratch_directory.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 1000;
// What a heap may grow by without anybody having kept anything: a page every sixty rounds.
constexpr long kAllowedGrowthKib = 64;

class Library {
 public:
  Library() : handle_(dlopen(TALVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool loaded() const { return handle_ != nullptr; }

  template <typename Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }

 private:
  void* handle_;
};

long entries(const char* folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

bool is_mapped() {
  std::ifstream maps("/proc/self/maps");
  const std::string text{std::istreambuf_iterator<char>(maps), {}};
  return text.find("libtalvex.so") != std::string::npos;
}

// Counted by page, where the sum in "status" is a guess on machines with many processors.
long resident_kib() {
  std::ifstream status("/proc/self/smaps_rollup");
  for (std::string word; status >> word;) {
    long value = 0;
    if (word == "Rss:" && status >> value) return value;
  }
  return 0;
}

// Calls that read the configuration, look for a device and open the logs; and utilities that allocate.
void use(const Library& library) {
  ASSERT_TRUE(library.loaded()) << dlerror();
  EXPECT_STREQ(library.function<char*()>("VersaoDllTalvex")(), "TALVEX DLL Ver. 02.00");
  EXPECT_EQ(std::string(library.function<char*(int)>("ConsultarSAT")(42)).substr(0, 16), "SAT Erro[-02000]");
  EXPECT_EQ(library.function<int()>("OLK_Base64DecTblAlloc")(), 0);
  EXPECT_EQ(library.function<int()>("OLK_Base64DecTblFree")(), 0);
}

struct Resources {
  long threads = entries("/proc/self/task");
  long descriptors = entries("/proc/self/fd");
  long resident = resident_kib();
};

TEST(Loading, leaves_no_file_and_prints_nothing) {
  const ScratchDirectory scratch;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  {
    const Library library;
    EXPECT_TRUE(library.loaded()) << dlerror();
    EXPECT_TRUE(is_mapped());
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(fs::is_empty("."));
}

TEST(Loading, unloads_after_use) {
  const ScratchDirectory scratch;
  { use(Library()); }
  EXPECT_FALSE(is_mapped());
}

TEST(Loading, a_thousand_times_leaves_no_thread_descriptor_or_memory_behind) {
  const ScratchDirectory scratch;
  // The search for a device says something about a machine without USB every time.
  testing::internal::CaptureStderr();
  for (int i = 0; i < kRounds / 10; ++i) use(Library());
  const Resources before;
  for (int i = 0; i < kRounds; ++i) use(Library());
  const Resources after;
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.descriptors, before.descriptors);
#if !defined(__SANITIZE_ADDRESS__)  // Its quarantine keeps freed memory.
  EXPECT_GT(before.resident, 0);
  EXPECT_LE(after.resident, before.resident + kAllowedGrowthKib);
#endif
}

TEST(Loading, exits_cleanly_after_unloading) {
  const ScratchDirectory scratch;
  const pid_t child = fork();
  if (child == 0) {
    { use(Library()); }
    // An exit handler of an unloaded library would jump into nothing.
    exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
