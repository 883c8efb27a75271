// Questions about paths, making directories, and removal that touches nothing but the named thing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "olk_utils/open_file.h"
#include "olk_utils/trace_log.h"
#include "support/file_status.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

// Removals pass through here, so that a test can play the process that changes the tree meanwhile.
namespace {
std::function<void()> after_removal;
std::string removal_to_follow;
std::function<void()> after_refusal;
}  // namespace

extern "C" {
int __real_unlinkat(int directory, const char* name, int flags);
int __wrap_unlinkat(int directory, const char* name, int flags);

int __wrap_unlinkat(int directory, const char* name, int flags) {
  const int result = __real_unlinkat(directory, name, flags);
  const int error = errno;
  if (removal_to_follow == name) {
    if (after_removal && result == 0) std::exchange(after_removal, nullptr)();
    if (after_refusal && result != 0 && flags == AT_REMOVEDIR) std::exchange(after_refusal, nullptr)();
  }
  errno = error;
  return result;
}
}

namespace {

namespace fs = std::filesystem;
using std::string;
using Messages = std::vector<string>;

class FileHelpers : public testing::Test {
 protected:
  void SetUp() override {
    bTraceLogsEnabled = 1;
    alarm(100);
  }
  void TearDown() override {
    alarm(0);
    bTraceLogsEnabled = 0;
    after_removal = nullptr;
    after_refusal = nullptr;
  }

  // In front of the next call, so that a test sees that call's lines alone.
  static void forget_messages() {
    for (const auto& entry : fs::directory_iterator(".")) {
      if (entry.path().filename().string().ends_with("olk_utils.log")) unlink(entry.path().c_str());
    }
  }
  static Messages messages() { return trace_messages("olk_utils.log"); }

  ScratchDirectory scratch_;
};

// File permissions do not bind root; they bind the account "nobody".
class WithoutPrivileges {
 public:
  WithoutPrivileges() {
    if (geteuid() != 0) return;
    if (chmod(".", 0777) != 0 || seteuid(65534) != 0) ADD_FAILURE() << "cannot drop privileges";
    dropped_ = true;
  }
  ~WithoutPrivileges() {
    if (dropped_ && seteuid(0) != 0) abort();
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

 private:
  bool dropped_ = false;
};

string kind_line(const string& head, const char* path) {
  struct stat status {};
  EXPECT_EQ(stat(path, &status), 0);
  std::array<char, 64> fields{};
  snprintf(fields.data(), fields.size(), "st_mode[00004000h] & S_IFMT[%08Xh]", status.st_mode);
  return head + fields.data();
}

string directory_line(const char* path) {
  return kind_line("INF [] OLK_Exist  rc[016384]OK:S_IFDIR is directory         ", path) + " return 1\n";
}
string regular_file_line(const char* path) {
  return kind_line("ERR [] OLK_Exist  rc[032768]ER:S_IFREG is regular file     ", path) + " return 2\n";
}
string missing_line(const string& path) {
  return "WRN [] OLK_Exist  rc[000000]WR:  pDirFileName[" + path + "] Not Found!!! force return 0\n";
}

// ---- size and existence ----

TEST_F(FileHelpers, SizeOfFilesAndDirectories) {
  write_file("empty", "");
  write_file("five", "12345");
  fs::create_directory("dir");
  struct stat status {};
  ASSERT_EQ(stat("dir", &status), 0);
  EXPECT_EQ(OLK_GetFileSize("empty"), 0);
  EXPECT_EQ(OLK_GetFileSize("five"), 5);
  EXPECT_EQ(OLK_GetFileSize("dir"), status.st_size);
  EXPECT_EQ(OLK_GetFileSize("missing"), -1);
  EXPECT_EQ(messages(), Messages{}) << "a missing file is no line";
}

TEST_F(FileHelpers, SizeIsCutTo32Bits) {
  write_file("large", "");
  ASSERT_EQ(truncate("large", (4LL << 30) + 7), 0);
  EXPECT_EQ(OLK_GetFileSize("large"), 7);
  ASSERT_EQ(truncate("large", 3LL << 30), 0);
  EXPECT_EQ(OLK_GetFileSize("large"), -1073741824);
}

TEST_F(FileHelpers, SizeThroughALinkIsItsTargets) {
  write_file("file", "more than the name of the file");
  fs::create_symlink("file", "link");
  fs::create_symlink("nowhere", "dangling");
  EXPECT_EQ(OLK_GetFileSize("link"), 30);
  EXPECT_EQ(OLK_GetFileSize("dangling"), -1);
}

TEST_F(FileHelpers, SizeOfNull) {
  EXPECT_EQ(OLK_GetFileSize(nullptr), -1);
  EXPECT_EQ(messages(), (Messages{"WRN [] [../src/olk_utils/olk_utils] [OLK_GetFileSize] rc[-00001]WR: "
                                  "pFileName=NULL\n"}));
}

TEST_F(FileHelpers, EmptyFileExistsWithSize0) {
  write_file("empty", "");
  EXPECT_EQ(OLK_FileExist("empty"), 0);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(FileHelpers, DirectoryExistsWithItsSize) {
  fs::create_directory("dir");
  struct stat status {};
  ASSERT_EQ(stat("dir", &status), 0);
  EXPECT_EQ(OLK_FileExist("dir"), status.st_size);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(FileHelpers, MissingFileIsALineUnlessItIsTheConfiguration) {
  EXPECT_EQ(OLK_FileExist("SAT.ini"), -1);
  EXPECT_EQ(messages(), Messages{});
  EXPECT_EQ(OLK_FileExist("./SAT.ini"), -1);
  EXPECT_EQ(messages(), (Messages{"WRN [] OLK_FileExist rc[-00001]WR pFileName[./SAT.ini] NOT FOUND!!\n"}));
}

TEST_F(FileHelpers, ExistenceOfNull) {
  EXPECT_EQ(OLK_FileExist(nullptr), -1);
  EXPECT_EQ(OLK_Exist(nullptr), -1);
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_FileExist rc[-00001]ER pFileName[null]\n",
                      "ERR [] OLK_Exist  rc[-00001]ER: pDirFileName=NULL Invalid Parameter!!!\n"}));
}

// ---- kinds ----

TEST_F(FileHelpers, MissingPathIsALineUnlessItIsTheDefaultLogDirectory) {
  EXPECT_EQ(OLK_Exist("Log"), 0);
  EXPECT_EQ(messages(), Messages{});
  EXPECT_EQ(OLK_Exist("Logs"), 0);
  EXPECT_EQ(OLK_Exist(""), 0);
  EXPECT_EQ(messages(), (Messages{missing_line("Logs"), missing_line("")}));
}

TEST_F(FileHelpers, DirectoryIsKind1) {
  fs::create_directory("dir");
  EXPECT_EQ(OLK_Exist("dir"), 1);
  EXPECT_EQ(messages(), (Messages{directory_line("dir")}));
}

TEST_F(FileHelpers, RegularFileIsKind2AndAnErrorLine) {
  write_file("file", "x");
  ASSERT_EQ(chmod("file", 0644), 0);
  EXPECT_EQ(OLK_Exist("file"), 2);
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_Exist  rc[032768]ER:S_IFREG is regular file     st_mode[00004000h] & "
                      "S_IFMT[000081A4h] return 2\n"}));
}

TEST_F(FileHelpers, FifoIsItsTypeBits) {
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(OLK_Exist("fifo"), 0x1000);
  EXPECT_EQ(
      messages(),
      (Messages{kind_line("ERR [] OLK_Exist  rc[004096]ER:S_IFCHR is  FIFO/pipe        ", "fifo") + "\n"}));
}

TEST_F(FileHelpers, CharacterDeviceIsItsTypeBits) {
  EXPECT_EQ(OLK_Exist("/dev/null"), 0x2000);
  EXPECT_EQ(messages(),
            (Messages{kind_line("ERR [] OLK_Exist  rc[008192]ER:S_IFCHR is character device  ", "/dev/null") +
                      "\n"}));
}

void make_socket(const char* name) {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_NE(descriptor, -1);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  string(name).copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(descriptor);
}

TEST_F(FileHelpers, SocketIsItsTypeBits) {
  make_socket("socket");
  EXPECT_EQ(OLK_Exist("socket"), 0xC000);
  EXPECT_EQ(
      messages(),
      (Messages{kind_line("ERR [] OLK_Exist  rc[049152]ER:S_IFSOCK is socket          ", "socket") + "\n"}));
}

string any_block_device() {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/dev", ignored)) {
    if (fs::is_block_file(entry.path(), ignored)) return entry.path();
  }
  return mknod("block", S_IFBLK | 0600, 0) == 0 ? "block" : "";
}

TEST_F(FileHelpers, BlockDeviceIsItsTypeBits) {
  const string device = any_block_device();
  if (device.empty()) GTEST_SKIP() << "no block device here";
  EXPECT_EQ(OLK_Exist(device.c_str()), 0x6000);
  EXPECT_EQ(
      messages(),
      (Messages{kind_line("ERR [] OLK_Exist  rc[024576]ER:S_IFBLK is block device      ", device.c_str()) +
                "\n"}));
  EXPECT_EQ(OLK_CreateDir(device.c_str()), 1) << "its mode has the directory bit";
}

TEST_F(FileHelpers, LinksReportTheirTarget) {
  fs::create_directory("dir");
  write_file("file", "");
  fs::create_symlink("dir", "to-dir");
  fs::create_symlink("file", "to-file");
  fs::create_symlink("nowhere", "dangling");
  EXPECT_EQ(OLK_Exist("to-dir"), 1);
  EXPECT_EQ(OLK_Exist("to-file"), 2);
  EXPECT_EQ(OLK_Exist("dangling"), 0);
}

// ---- making directories ----

TEST_F(FileHelpers, CreatesADirectoryForItsOwner) {
  const mode_t former = umask(0);
  EXPECT_EQ(OLK_CreateDir("dir"), 2);
  umask(former);
  struct stat status {};
  ASSERT_EQ(stat("dir", &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
  EXPECT_EQ(OLK_CreateDir("dir"), 1);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(FileHelpers, CreatesOneLevelOnly) {
  EXPECT_EQ(OLK_CreateDir("a/b"), -5);
  EXPECT_FALSE(fs::exists("a"));
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_CreateDir rc[-00005] pDirName[a/b] Not Created!\n"}));
}

TEST_F(FileHelpers, FileInThePlaceOfTheDirectory) {
  write_file("file", "content");
  ASSERT_EQ(chmod("file", 0640), 0);
  EXPECT_EQ(OLK_CreateDir("file"), -4);
  EXPECT_EQ(read_file("file"), "content");
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_CreateDir rc[-00004] pDirName[file] Not Created s.st_mode[000081A0h] And "
                      "S_IFDIR[00004000h] == 1\n"}));
}

TEST_F(FileHelpers, DirectoryBitAloneDecides) {
  make_socket("socket");
  EXPECT_EQ(OLK_CreateDir("socket"), 1);
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(OLK_CreateDir("fifo"), -4);
}

TEST_F(FileHelpers, LinkToADirectoryIsADirectoryThatExists) {
  fs::create_directory("dir");
  fs::create_symlink("dir", "link");
  EXPECT_EQ(OLK_CreateDir("link"), 1);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(FileHelpers, LinkToNowhereStaysOne) {
  fs::create_symlink("nowhere", "link");
  EXPECT_EQ(OLK_CreateDir("link"), -5);
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_CreateDir rc[-00005] pDirName[link] Not Created!\n"}));
}

TEST_F(FileHelpers, CreationOfNull) {
  EXPECT_EQ(OLK_CreateDir(nullptr), -1);
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_CreateDir  rc[-00001] Fail: pDirName=NULL\n"}));
}

// ---- removal: answers and lines ----

string delete_dir_line(const string& tag, const string& rc_and_word, const string& path, const string& rest) {
  return tag + " [] OLK_DeleteDir " + rc_and_word + "   pDirName[" + path + "] " + rest + "\n";
}
string delete_file_line(const string& tag, const string& rc_and_word, const string& path,
                        const string& rest) {
  return tag + " [] OLK_DeleteFile " + rc_and_word + "   pFileName[" + path + "] " + rest + "\n";
}
string delete_dir_now(const string& path) {
  return delete_dir_line("WRN", "rc[000001]WR", path, "Directory Exist >> Delete it Now!!!");
}
string delete_file_now(const string& path) {
  return delete_file_line("WRN", "rc[000002]WR", path, "File Exist >> Delete it Now!!!");
}

TEST_F(FileHelpers, DeletesADirectory) {
  fs::create_directories("dir/sub");
  write_file("dir/sub/file", "x");
  const string found = directory_line("dir");
  EXPECT_EQ(OLK_DeleteDir("dir"), 1);
  EXPECT_FALSE(fs::exists("dir"));
  EXPECT_EQ(
      messages(),
      (Messages{found, delete_dir_now("dir"), missing_line("dir"),
                delete_dir_line("INF", "rc[000001]OK", "dir", "Directory Successfull Deleted return 1")}));
}

TEST_F(FileHelpers, DeleteDirOfAFile) {
  write_file("file", "x");
  EXPECT_EQ(OLK_DeleteDir("file"), -2);
  EXPECT_TRUE(fs::exists("file"));
  EXPECT_EQ(messages(),
            (Messages{regular_file_line("file"),
                      delete_dir_line("WRN", "rc[-00002]ER", "file", "Is not a Directort! >> return -2")}));
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(OLK_DeleteDir("fifo"), -2);
  EXPECT_EQ(OLK_DeleteFile("fifo"), -2);
  EXPECT_TRUE(fs::exists("fifo"));
}

TEST_F(FileHelpers, DeleteDirOfNothing) {
  EXPECT_EQ(OLK_DeleteDir("missing"), 0);
  EXPECT_EQ(OLK_DeleteDir(nullptr), 0);
  const string rest = "Directory do not Exist! >> return 0";
  EXPECT_EQ(messages(),
            (Messages{missing_line("missing"), delete_dir_line("WRN", "rc[000000]WR", "missing", rest),
                      "ERR [] OLK_Exist  rc[-00001]ER: pDirFileName=NULL Invalid Parameter!!!\n",
                      delete_dir_line("WRN", "rc[000000]WR", "", rest)}));
}

TEST_F(FileHelpers, DirectoryThatSurvivesGivesMinus1) {
  const WithoutPrivileges nobody;
  fs::create_directories("dir/locked");
  write_file("dir/locked/file", "x");
  write_file("dir/other", "x");
  fs::create_directories("dir/more/below");
  ASSERT_EQ(chmod("dir/locked", 0500), 0);
  const string found = directory_line("dir");
  EXPECT_EQ(OLK_DeleteDir("dir"), -1);
  EXPECT_EQ(
      messages(),
      (Messages{found, delete_dir_now("dir"), found,
                delete_dir_line("ERR", "rc[-00001]ER", "dir", "Directory Could not be Deleted return -1")}));
  EXPECT_TRUE(fs::exists("dir/locked/file"));
  EXPECT_FALSE(fs::exists("dir/other")) << "what can be removed is removed";
  EXPECT_FALSE(fs::exists("dir/more"));
  ASSERT_EQ(chmod("dir/locked", 0700), 0);
}

TEST_F(FileHelpers, SomethingElseInThePlaceOfTheDirectoryGives3) {
  fs::create_directory("dir");
  const string found = directory_line("dir");
  removal_to_follow = "dir";
  after_removal = [] { write_file("dir", ""); };
  EXPECT_EQ(OLK_DeleteDir("dir"), 3);
  EXPECT_EQ(messages(),
            (Messages{found, delete_dir_now("dir"), regular_file_line("dir"),
                      delete_dir_line("WRN", "rc[000003]WR", "dir", "Directory Deleted return 3")}));
}

TEST_F(FileHelpers, DeletesAFile) {
  write_file("file", "x");
  const string found = regular_file_line("file");
  EXPECT_EQ(OLK_DeleteFile("file"), 1);
  EXPECT_FALSE(fs::exists("file"));
  EXPECT_EQ(messages(),
            (Messages{found, delete_file_now("file"), missing_line("file"),
                      delete_file_line("INF", "rc[000001]OK", "file", "File Successfull Deleted return 1")}));
}

TEST_F(FileHelpers, DeleteFileOfADirectory) {
  fs::create_directory("dir");
  EXPECT_EQ(OLK_DeleteFile("dir"), -2);
  EXPECT_TRUE(fs::exists("dir"));
  EXPECT_EQ(messages(), (Messages{directory_line("dir"), delete_file_line("WRN", "rc[-00002]ER", "dir",
                                                                          "Is not a File! >> return -2")}));
}

TEST_F(FileHelpers, DeleteFileOfNothing) {
  EXPECT_EQ(OLK_DeleteFile("missing"), 0);
  EXPECT_EQ(OLK_DeleteFile(nullptr), 0);
  const string rest = "File do not Exist! >> return 0";
  EXPECT_EQ(messages(),
            (Messages{missing_line("missing"), delete_file_line("WRN", "rc[000000]WR", "missing", rest),
                      "ERR [] OLK_Exist  rc[-00001]ER: pDirFileName=NULL Invalid Parameter!!!\n",
                      delete_file_line("WRN", "rc[000000]WR", "", rest)}));
}

TEST_F(FileHelpers, FileThatSurvivesGives3AndADeletedLine) {
  const WithoutPrivileges nobody;
  fs::create_directory("dir");
  write_file("dir/file", "x");
  ASSERT_EQ(chmod("dir", 0500), 0);
  const string found = regular_file_line("dir/file");
  EXPECT_EQ(OLK_DeleteFile("dir/file"), 3);
  ASSERT_EQ(chmod("dir", 0700), 0);
  EXPECT_TRUE(fs::exists("dir/file"));
  EXPECT_EQ(messages(),
            (Messages{found, delete_file_now("dir/file"), found,
                      delete_file_line("WRN", "rc[000003]WR", "dir/file", "File Deleted return 3")}));
}

TEST_F(FileHelpers, DirectoryInThePlaceOfTheFileGivesMinus1) {
  write_file("file", "");
  const string found = regular_file_line("file");
  removal_to_follow = "file";
  after_removal = [] { fs::create_directory("file"); };
  EXPECT_EQ(OLK_DeleteFile("file"), -1);
  EXPECT_EQ(
      messages(),
      (Messages{found, delete_file_now("file"), directory_line("file"),
                delete_file_line("ERR", "rc[-00001]ER", "file", "File Could not be Deleted return -1")}));
}

// ---- removal: nothing but the named thing ----

TEST_F(FileHelpers, RemovalNeverFollowsLinks) {
  fs::create_directory("precious");
  write_file("precious/file", "x");
  fs::create_directories("dir/sub");
  fs::create_symlink("../precious", "dir/link");
  fs::create_symlink("../../precious/file", "dir/sub/link");
  EXPECT_EQ(OLK_DeleteDir("dir"), 1);
  fs::create_symlink("precious", "to-dir");
  EXPECT_EQ(OLK_DeleteDir("to-dir"), 1) << "the link is gone";
  fs::create_symlink("precious", "to-dir");
  EXPECT_EQ(OLK_DeleteDir("to-dir/"), 1);
  fs::create_symlink("precious/file", "to-file");
  EXPECT_EQ(OLK_DeleteFile("to-file"), 1);
  EXPECT_EQ(read_file("precious/file"), "x");
  EXPECT_FALSE(fs::is_symlink("to-dir"));
}

TEST_F(FileHelpers, NamesAreNoShellText) {
  fs::create_directories("a b");
  fs::create_directories("a");
  fs::create_directories("b");
  const string hostile = "x; touch evil $(touch evil) `touch evil` * 'q' \"q\" %s%n";
  fs::create_directory(hostile);
  fs::create_directory("-rf");
  EXPECT_EQ(OLK_DeleteDir("a b"), 1);
  EXPECT_EQ(OLK_DeleteDir(hostile.c_str()), 1);
  EXPECT_EQ(OLK_DeleteDir("-rf"), 1);
  EXPECT_TRUE(fs::exists("a"));
  EXPECT_TRUE(fs::exists("b"));
  EXPECT_FALSE(fs::exists("evil"));
}

TEST_F(FileHelpers, WorkingDirectoryAndTheOneAboveAreRefused) {
  fs::create_directories("outer/inner");
  write_file("outer/inner/file", "x");
  for (const char* path :
       {"outer/inner/.", "outer/inner/..", "outer/inner/./", "outer/inner/..//", "./", "."}) {
    EXPECT_EQ(OLK_DeleteDir(path), -1) << path;
  }
  fs::current_path("outer/inner");
  EXPECT_EQ(OLK_DeleteDir(".."), -1);
  fs::current_path(scratch_.path());
  EXPECT_EQ(read_file("outer/inner/file"), "x");
  EXPECT_EQ(OLK_DeleteDir("outer//inner///"), 1);
}

TEST_F(FileHelpers, RootIsRefused) {
  fs::create_directories("root/kept");
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // In a root of its own, so that a mistake costs nothing.
    if (chroot("root") != 0 || chdir("/") != 0) _exit(77);
    bTraceLogsEnabled = 0;
    const bool refused = OLK_DeleteDir("/") == -1 && OLK_DeleteDir("//") == -1;
    _exit(refused && access("/kept", F_OK) == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no right to change the root";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

string path_of_length(size_t length) {
  string path = "d/";
  path.append(length - path.size(), 'n');
  return path;
}

TEST_F(FileHelpers, PathsOfUpTo249CharactersAreRemoved) {
  const string longest = path_of_length(249);
  const string refused = path_of_length(250);
  fs::create_directories(longest);
  fs::create_directories(refused);
  EXPECT_EQ(OLK_DeleteDir(longest.c_str()), 1);
  EXPECT_EQ(OLK_DeleteDir(refused.c_str()), -1);
  EXPECT_TRUE(fs::is_directory(refused));
  fs::remove(refused);
  write_file(longest, "");
  write_file(refused, "");
  EXPECT_EQ(OLK_DeleteFile(longest.c_str()), 1);
  EXPECT_EQ(OLK_DeleteFile(refused.c_str()), 3);
  EXPECT_TRUE(fs::exists(refused));
}

TEST_F(FileHelpers, PathThatIsTooLongIsRefusedAndNotCut) {
  const string refused = path_of_length(250);
  const string cut = refused.substr(0, 249);
  fs::create_directories(cut);
  fs::create_directories(refused);
  EXPECT_EQ(OLK_DeleteDir(refused.c_str()), -1);
  EXPECT_TRUE(fs::is_directory(cut));
  EXPECT_TRUE(fs::is_directory(refused));
  fs::remove(cut);
  fs::remove(refused);
  write_file(cut, "");
  write_file(refused, "");
  EXPECT_EQ(OLK_DeleteFile(refused.c_str()), 3);
  EXPECT_TRUE(fs::exists(cut));
  EXPECT_TRUE(fs::exists(refused));
}

// A chain of directories, each with a file; its paths are far longer than the system takes.
void make_deep_tree(const char* top, int depth) {
  const string name(40, 'd');
  ASSERT_EQ(mkdir(top, 0700), 0);
  int directory = open(top, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < depth; ++level) {
    close(openat(directory, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(mkdirat(directory, name.c_str(), 0700), 0);
    const int next = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_NE(next, -1);
    close(directory);
    directory = next;
  }
  close(directory);
}

TEST_F(FileHelpers, TreesDeeperThanPathsAndDescriptorsAreRemoved) {
  make_deep_tree("deep", 3000);
  EXPECT_EQ(OLK_DeleteDir("deep"), 1);
  EXPECT_FALSE(fs::exists("deep"));
}

TEST_F(FileHelpers, WideTreesAreRemoved) {
  for (int directory = 0; directory < 40; ++directory) {
    const string name = "wide/" + std::to_string(directory);
    fs::create_directories(name);
    for (int file = 0; file < 40; ++file) write_file(name + "/" + std::to_string(file), "");
  }
  EXPECT_EQ(OLK_DeleteDir("wide"), 1);
  EXPECT_FALSE(fs::exists("wide"));
}

TEST_F(FileHelpers, StubbornEntriesDoNotStopTheRest) {
  const WithoutPrivileges nobody;
  for (int directory = 0; directory < 30; ++directory) {
    const string name = "dir/" + std::to_string(directory);
    fs::create_directories(name + "/below");
    write_file(name + "/below/file", "");
    const mode_t mode = directory % 3 != 0 ? 0700 : directory % 2 == 0 ? 0500 : 0;
    ASSERT_EQ(chmod((name + "/below").c_str(), mode), 0);
  }
  EXPECT_EQ(OLK_DeleteDir("dir"), -1);
  for (int directory = 0; directory < 30; ++directory) {
    const string name = "dir/" + std::to_string(directory);
    EXPECT_EQ(fs::exists(name), directory % 3 == 0) << name;
    if (fs::exists(name)) fs::permissions(name + "/below", fs::perms::owner_all);
  }
  EXPECT_EQ(OLK_DeleteDir("dir"), 1);
}

TEST_F(FileHelpers, TreeThatIsMovedMeanwhileDoesNotLeadElsewhere) {
  fs::create_directory("elsewhere");
  write_file("elsewhere/precious", "x");
  fs::create_directories("dir/a/b");
  write_file("dir/a/b/file", "");
  removal_to_follow = "file";
  after_removal = [] { fs::rename("dir/a/b", "elsewhere/b"); };
  EXPECT_EQ(OLK_DeleteDir("dir"), -1);
  EXPECT_EQ(read_file("elsewhere/precious"), "x");
  EXPECT_TRUE(fs::exists("elsewhere/b"));
}

TEST_F(FileHelpers, LinkInThePlaceOfADirectoryMeanwhileIsNotFollowed) {
  fs::create_directory("precious");
  write_file("precious/file", "x");
  fs::create_directories("dir/sub/below");
  removal_to_follow = "sub";
  after_refusal = [] {
    fs::rename("dir/sub", "moved");
    fs::create_symlink("../precious", "dir/sub");
  };
  EXPECT_EQ(OLK_DeleteDir("dir"), -1);
  EXPECT_EQ(read_file("precious/file"), "x");
}

TEST_F(FileHelpers, RemovalLeavesNoDescriptorOpen) {
  fs::create_directories("dir/a/b/c");
  const long before = open_descriptors();
  EXPECT_EQ(OLK_DeleteDir("dir"), 1);
  EXPECT_EQ(open_descriptors(), before);
}

// ---- opening ----

// A host that has closed this stream, for as long as the object lives.
class WithoutStream {
 public:
  explicit WithoutStream(int stream) : stream_(stream), kept_(fcntl(stream, F_DUPFD_CLOEXEC, 10)) {
    close(stream);
  }
  ~WithoutStream() {
    dup2(kept_, stream_);
    close(kept_);
  }
  WithoutStream(const WithoutStream&) = delete;
  WithoutStream& operator=(const WithoutStream&) = delete;

 private:
  int stream_;
  int kept_;
};

struct Opened {
  int descriptor;
  int flags;
  bool stream_stays_free;
  long left_open;
};

Opened open_without(int stream) {
  const WithoutStream host(stream);
  const long before = open_descriptors();
  const int descriptor = open_file("file", O_RDONLY);
  const int flags = fcntl(descriptor, F_GETFD);
  const bool free = fcntl(stream, F_GETFD) == -1;
  close(descriptor);
  return {descriptor, flags, free, open_descriptors() - before};
}

TEST_F(FileHelpers, OpenedFilesTakeNoStreamsPlaceAndArePassedToNoProgram) {
  write_file("file", "");
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const Opened opened = open_without(stream);
    EXPECT_GT(opened.descriptor, STDERR_FILENO) << stream;
    EXPECT_EQ(opened.flags, FD_CLOEXEC) << stream;
    EXPECT_TRUE(opened.stream_stays_free) << stream;
    EXPECT_EQ(opened.left_open, 0) << stream;
  }
}

}  // namespace
