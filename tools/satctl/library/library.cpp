#include "library/library.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>

#include "talvex/talvex.h"
#include "terminal/exit_status.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr const char* kLibraryName = "libtalvex.so.2";
// What OLK_GetIniFileValue promises not to exceed.
constexpr std::size_t kIniValueCapacity = 128;

std::vector<std::string> candidates(const std::string& path) {
  if (!path.empty()) return {path};
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  std::vector<std::string> names{kLibraryName};
  for (const char* folder : {"../lib", ".."}) {
    names.push_back((program.parent_path() / folder / kLibraryName).lexically_normal().string());
  }
  return names;
}

std::filesystem::path path_of(void* handle) {
  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return {};
  std::error_code error;
  const auto path = std::filesystem::canonical(map->l_name, error);
  return error ? std::filesystem::path(map->l_name) : path;
}

bool is_base64_character(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// The text without line breaks, if it is whole.
std::optional<std::string> clean_base64(std::string text) {
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n' || c == ' ' || c == '\t'; });
  const auto end = text.find_last_not_of('=');
  const std::size_t letters = end == std::string::npos ? 0 : end + 1;
  if (text.size() % 4 != 0 || text.size() - letters > 2 || letters == 0) return std::nullopt;
  if (!std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(letters), is_base64_character)) {
    return std::nullopt;
  }
  return text;
}

}  // namespace

Library::Library(const std::string& path) {
  std::string reasons;
  for (const std::string& name : candidates(path)) {
    handle_ = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ != nullptr) break;
    reasons += std::string("\n  ") + dlerror();
  }
  if (handle_ == nullptr) {
    throw UsageError(fill({"The library cannot be loaded; --library PATH tells where it is.{}",
                           "A biblioteca não pôde ser carregada; --library CAMINHO diz onde ela está.{}"},
                          {reasons}));
  }
  path_ = path_of(handle_);
}

void* Library::find(const char* name) const {
  return dlsym(handle_, name);
}

void* Library::required(const char* name) const {
  void* address = find(name);
  if (address == nullptr) {
    throw UsageError(fill({"{} has no function {}.", "{} não tem a função {}."}, {path_.string(), name}));
  }
  return address;
}

std::string Library::call(const Function& function, int session,
                          const std::vector<std::string>& values) const {
  void* address = required(function.name);
  const LibraryOutputSilenced silence;
  return function.call(address, session, values);
}

std::string Library::version() const {
  const auto version = function<decltype(VersaoDllTalvex)>("VersaoDllTalvex");
  const LibraryOutputSilenced silence;
  return version();
}

std::string Library::return_code_message(int code) const {
  const auto message = function<decltype(SAT_GetRetCodeMsg)>("SAT_GetRetCodeMsg");
  const LibraryOutputSilenced silence;
  const char* text = message(code, nullptr);
  return text == nullptr ? std::string() : std::string(text);
}

std::optional<std::string> Library::ini_value(const std::filesystem::path& file, const std::string& section,
                                              const std::string& item) const {
  const auto read = function<decltype(OLK_GetIniFileValue)>("OLK_GetIniFileValue");
  const LibraryOutputSilenced silence;
  char value[kIniValueCapacity] = "";
  if (read(file.c_str(), section.c_str(), item.c_str(), value) < 0) return std::nullopt;
  return std::string(value);
}

std::optional<std::string> Library::decode_base64(const std::string& text) const {
  const auto clean = clean_base64(text);
  if (!clean) return std::nullopt;
  const auto decode = function<decltype(OLK_Base64Decoder)>("OLK_Base64Decoder");
  const LibraryOutputSilenced silence;
  std::string bytes(clean->size() / 4 * 3 + 1, '\0');
  uint64_t length = 0;
  const int result =
      decode(clean->c_str(), clean->size(), reinterpret_cast<unsigned char*>(bytes.data()), &length);
  if (result < 0) return std::nullopt;
  bytes.resize(length);
  return bytes;
}

}  // namespace satctl
