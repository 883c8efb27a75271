// A host in C++17, linked against the library: the declared types, checked by the compiler, and a few calls.
#include <talvex/talvex.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

// The functions are C functions; their types are part of the interface.
static_assert(std::is_same_v<decltype(AtivarSAT), char*(int, int, const char*, const char*, int)>);
static_assert(std::is_same_v<decltype(EnviarDadosVenda), char*(int, const char*, const char*)>);
static_assert(
    std::is_same_v<decltype(CancelarUltimaVenda), char*(int, const char*, const char*, const char*)>);
static_assert(std::is_same_v<decltype(ConsultarSAT), char*(int)>);
static_assert(std::is_same_v<decltype(ConsultarNumeroSessao), char*(int, const char*, int)>);
static_assert(
    std::is_same_v<decltype(TrocarCodigoDeAtivacao), char*(int, const char*, int, const char*, const char*)>);
static_assert(std::is_same_v<decltype(VersaoDllTalvex), char*()>);
static_assert(std::is_same_v<decltype(SAT_GetRetCodeMsg), const char*(int, char*)>);
static_assert(std::is_same_v<decltype(SAT_API_CalcCkeckSum), unsigned char(const unsigned char*, int)>);
static_assert(std::is_same_v<decltype(SAT_APP_GenRndNum), std::uint32_t(std::uint32_t)>);
static_assert(std::is_same_v<decltype(OLK_Base64Decoder),
                             int(const char*, std::uint64_t, unsigned char*, std::uint64_t*)>);
static_assert(std::is_same_v<decltype(SAT_Get_IBGE_UF_Name), const char*(std::uint32_t)>);
static_assert(std::is_same_v<decltype(bErrorLogsEnabled), std::int64_t>);
static_assert(std::is_same_v<decltype(gl_hComm), int>);
static_assert(std::is_same_v<decltype(pB64_EncTable), const char[64]>);
static_assert(std::is_same_v<decltype(mod_table), const std::int32_t[3]>);
static_assert(std::is_same_v<decltype(psB64_DecTable), unsigned char*>);
static_assert(std::is_standard_layout_v<TalvexLogConfiguration>);

int main() {
  const std::string version = VersaoDllTalvex();
  const std::string failure = ConsultarSAT(42);
  const std::string_view prefix = TALVEX_FAILURE_PREFIX;
  const bool right = version == "TALVEX DLL Ver. 02.00" && failure.substr(0, prefix.size()) == prefix &&
                     std::stoi(failure.substr(prefix.size())) == TALVEX_LINK_DEVICE_NOT_FOUND &&
                     std::string_view(SAT_GetRetCodeMsg(8000, nullptr)) == "SAT em operacao";
  if (!right) std::printf("%s\n%s\n", version.c_str(), failure.c_str());
  return right ? 0 : 1;
}
