// What a path names, how large it is, and making and removing it. Every answer is a snapshot.
#include "olk_utils/file_helpers.h"

#include <string.h>
#include <sys/stat.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/file_size.h"
#include "olk_utils/removal.h"
#include "olk_utils/usually_absent.h"
#include "olk_utils/utils_trace.h"

namespace {

// Answers of OLK_Exist that the callers below tell apart.
constexpr int kNothing = 0;
constexpr int kDirectory = 1;
constexpr int kRegularFile = 2;

constexpr mode_t kOwnerOnly = 0700;

bool has_directory_bit(const struct stat& status) {
  return (status.st_mode & S_IFDIR) != 0;
}

// Kept: the field called st_mode always shows 0x4000, the one called S_IFMT the whole mode, and every
// kind but the directory is logged as an error.
#define KIND_TRACE(level, text) \
  UTILS_TRACE_IN("OLK_Exist", level, text, static_cast<int>(kind), static_cast<unsigned>(S_IFDIR), mode)

int kind_of_mode(mode_t mode) {
  const mode_t kind = mode & S_IFMT;
  switch (kind) {
    case S_IFDIR:
      KIND_TRACE(kInfo,
                 "  rc[%06d]OK:S_IFDIR is directory         st_mode[%08Xh] & S_IFMT[%08Xh] return 1\n");
      return kDirectory;
    case S_IFREG:
      KIND_TRACE(kError,
                 "  rc[%06d]ER:S_IFREG is regular file     st_mode[%08Xh] & S_IFMT[%08Xh] return 2\n");
      return kRegularFile;
    case S_IFBLK:
      KIND_TRACE(kError, "  rc[%06d]ER:S_IFBLK is block device      st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
    case S_IFCHR:
      KIND_TRACE(kError, "  rc[%06d]ER:S_IFCHR is character device  st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
    case S_IFIFO:
      KIND_TRACE(kError, "  rc[%06d]ER:S_IFCHR is  FIFO/pipe        st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
    case S_IFLNK:
      KIND_TRACE(kError, "  rc[%06d]ER:S_IFLNK is :symlink         st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
    case S_IFSOCK:
      KIND_TRACE(kError, "  rc[%06d]ER:S_IFSOCK is socket          st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
    default:
      KIND_TRACE(kError, "  rc[%06d]ER:S_UNKNW is Unknown?         st_mode[%08Xh] & S_IFMT[%08Xh]\n");
      break;
  }
  return static_cast<int>(kind);
}

}  // namespace

int OLK_GetFileSize(const char* pFileName) {
  if (pFileName == nullptr) {
    UTILS_BRACKET_TRACE(kWarning, " rc[%06d]WR: pFileName=NULL\n", -1);
    return -1;
  }
  return file_size(pFileName);
}

int OLK_FileExist(const char* pFileName) {
  if (pFileName == nullptr) {
    UTILS_TRACE(kError, " rc[%06d]ER pFileName[null]\n", -1);
    return -1;
  }
  const int size = OLK_GetFileSize(pFileName);
  if (size < 0 && !is_usually_absent(Thing::kFile, pFileName)) {
    UTILS_TRACE(kWarning, " rc[%06d]WR pFileName[%s] NOT FOUND!!\n", size, pFileName);
  }
  return size;
}

int existing_file_size(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return OLK_FileExist(path);
  return length_field(static_cast<uint64_t>(status.st_size));
}

int OLK_Exist(const char* pDirFileName) {
  if (pDirFileName == nullptr) {
    UTILS_TRACE(kError, "  rc[%06d]ER: pDirFileName=NULL Invalid Parameter!!!\n", -1);
    return -1;
  }
  struct stat status {};
  if (stat(pDirFileName, &status) == 0) return kind_of_mode(status.st_mode);
  if (!is_usually_absent(Thing::kFolder, pDirFileName)) {
    UTILS_TRACE(kWarning, "  rc[%06d]WR:  pDirFileName[%s] Not Found!!! force return 0\n", kNothing,
                pDirFileName);
  }
  return kNothing;
}

// Kept: the directory bit is tested alone, so a socket or a block device counts as a directory too.
int OLK_CreateDir(const char* pDirName) {
  if (pDirName == nullptr) {
    UTILS_TRACE(kError, "  rc[%06d] Fail: pDirName=NULL\n", -1);
    return -1;
  }
  struct stat status {};
  if (stat(pDirName, &status) == 0 && has_directory_bit(status)) return 1;

  mkdir(pDirName, kOwnerOnly);
  if (stat(pDirName, &status) != 0) {
    UTILS_TRACE(kError, " rc[%06d] pDirName[%s] Not Created!\n", -5, pDirName);
    return -5;
  }
  if (!has_directory_bit(status)) {
    UTILS_TRACE(kError, " rc[%06d] pDirName[%s] Not Created s.st_mode[%08Xh] And S_IFDIR[%08Xh] == 1\n", -4,
                pDirName, status.st_mode, static_cast<unsigned>(S_IFDIR));
    return -4;
  }
  return 2;
}

int OLK_DeleteDir(const char* pDirName) {
  const int found = OLK_Exist(pDirName);
  if (found <= kNothing) {
    UTILS_TRACE(kWarning, " rc[%06d]WR   pDirName[%s] Directory do not Exist! >> return 0\n", 0,
                text_or_empty(pDirName));
    return 0;
  }
  if (found != kDirectory) {
    UTILS_TRACE(kWarning, " rc[%06d]ER   pDirName[%s] Is not a Directort! >> return -2\n", -2, pDirName);
    return -2;
  }
  UTILS_TRACE(kWarning, " rc[%06d]WR   pDirName[%s] Directory Exist >> Delete it Now!!!\n", found, pDirName);
  remove_path(pDirName);

  const int left = OLK_Exist(pDirName);
  if (left == kNothing) {
    UTILS_TRACE(kInfo, " rc[%06d]OK   pDirName[%s] Directory Successfull Deleted return 1\n", 1, pDirName);
    return 1;
  }
  if (left < 0) {
    UTILS_TRACE(kWarning, " rc[%06d]WR   pDirName[%s] Directory Deleted return 2\n", 2, pDirName);
    return 2;
  }
  if (left == kDirectory) {
    UTILS_TRACE(kError, " rc[%06d]ER   pDirName[%s] Directory Could not be Deleted return -1\n", -1,
                pDirName);
    return -1;
  }
  UTILS_TRACE(kWarning, " rc[%06d]WR   pDirName[%s] Directory Deleted return 3\n", 3, pDirName);
  return 3;
}

// Kept: the answers after the removal are those of a directory, so a file that survives gives 3 and
// a "Deleted" line.
int OLK_DeleteFile(const char* pFileName) {
  const int found = OLK_Exist(pFileName);
  if (found <= kNothing) {
    UTILS_TRACE(kWarning, " rc[%06d]WR   pFileName[%s] File do not Exist! >> return 0\n", 0,
                text_or_empty(pFileName));
    return 0;
  }
  if (found != kRegularFile) {
    UTILS_TRACE(kWarning, " rc[%06d]ER   pFileName[%s] Is not a File! >> return -2\n", -2, pFileName);
    return -2;
  }
  UTILS_TRACE(kWarning, " rc[%06d]WR   pFileName[%s] File Exist >> Delete it Now!!!\n", found, pFileName);
  remove_path(pFileName);

  const int left = OLK_Exist(pFileName);
  if (left == kNothing) {
    UTILS_TRACE(kInfo, " rc[%06d]OK   pFileName[%s] File Successfull Deleted return 1\n", 1, pFileName);
    return 1;
  }
  if (left < 0) {
    UTILS_TRACE(kWarning, " rc[%06d]WR   pFileName[%s] File Deleted return 2\n", 2, pFileName);
    return 2;
  }
  if (left == kDirectory) {
    UTILS_TRACE(kError, " rc[%06d]ER   pFileName[%s] File Could not be Deleted return -1\n", -1, pFileName);
    return -1;
  }
  UTILS_TRACE(kWarning, " rc[%06d]WR   pFileName[%s] File Deleted return 3\n", 3, pFileName);
  return 3;
}
