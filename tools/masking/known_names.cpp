#include "masking/known_names.h"

#include <algorithm>
#include <array>
#include <span>

namespace masking {

namespace {

constexpr auto kSatFunctions = std::to_array<std::string_view>(
    {"AssociarAssinatura", "AtivarSAT", "AtualizarSoftwareSAT", "BloquearSAT", "CancelarUltimaVenda",
     "ComunicarCertificadoICPBRASIL", "ConfigurarInterfaceDeRede", "ConsultarNumeroSessao", "ConsultarSAT",
     "ConsultarStatusOperacional", "ConsultarUltimaSessaoFiscal", "DesbloquearSAT", "EnviarDadosVenda",
     "ExtrairLogs", "TesteFimAFim", "TrocarCodigoDeAtivacao", "VersaoDllTalvex"});
static_assert(std::is_sorted(kSatFunctions.begin(), kSatFunctions.end()));

constexpr auto kLibraryFunctions = std::to_array<std::string_view>({"Communicate",
                                                                    "CreateFile_TalvexIni",
                                                                    "CreateSAT_ProtLogFile",
                                                                    "GetFixedSerialPort",
                                                                    "LogSATProtocolMsg",
                                                                    "LogSzCtlTherad",
                                                                    "OLK_Base64DecTblAlloc",
                                                                    "OLK_Base64DecTblFree",
                                                                    "OLK_Base64Decoder",
                                                                    "OLK_Base64Encoder",
                                                                    "OLK_Base64_Test01",
                                                                    "OLK_Check_CNPJ",
                                                                    "OLK_Check_CPF",
                                                                    "OLK_CreateDir",
                                                                    "OLK_DeleteDir",
                                                                    "OLK_DeleteFile",
                                                                    "OLK_Exist",
                                                                    "OLK_FileExist",
                                                                    "OLK_GetCPFCheckDigit",
                                                                    "OLK_GetFileSize",
                                                                    "OLK_GetIniFileValue",
                                                                    "OLK_SetIniFileLogMode",
                                                                    "OLK_SetIniFileValue",
                                                                    "SAT_API_CalcCkeckSum",
                                                                    "SAT_API_CmdPktParcer",
                                                                    "SAT_API_CreatePacket",
                                                                    "SAT_API_DecodeSatCmd",
                                                                    "SAT_API_RspPktParcer",
                                                                    "SAT_APP_CmdParcer",
                                                                    "SAT_APP_GenRndNum",
                                                                    "SAT_APP_RspParcer",
                                                                    "SAT_Free_AllocedMsg",
                                                                    "SAT_Get_IBGE_EstateName",
                                                                    "SAT_Get_IBGE_RegionName",
                                                                    "SAT_Get_IBGE_UF_Name",
                                                                    "SAT_Get_IBGH_UF_Code",
                                                                    "UpdateTalvexConfiguration",
                                                                    "cSerialReadAck",
                                                                    "cSerialReadBufW",
                                                                    "findSat",
                                                                    "generate_98_return",
                                                                    "init_global_sat_struct",
                                                                    "lSerialCloseL",
                                                                    "lSerialLock",
                                                                    "lSerialOpenW",
                                                                    "lSerialSettingsL",
                                                                    "lSerialUnlock",
                                                                    "lSerialWriteAck",
                                                                    "lSerialWriteBufL",
                                                                    "write_operation_result"});
static_assert(std::is_sorted(kLibraryFunctions.begin(), kLibraryFunctions.end()));

// Sections and items; section SAT_TIMEOUT has an item for each function of the standard.
constexpr auto kConfigurationNames = std::to_array<std::string_view>({"ARVOLEN",
                                                                      "Enable",
                                                                      "FixarPorta",
                                                                      "LOG",
                                                                      "LogFileMaxSize",
                                                                      "LogFileName",
                                                                      "LogFilePath",
                                                                      "LogMode",
                                                                      "PathLinux",
                                                                      "PathWindows",
                                                                      "ReadIntervalTimeout",
                                                                      "ReadTotalTimeoutConstant",
                                                                      "ReadTotalTimeoutMultiplier",
                                                                      "SAT_EMULATOR",
                                                                      "SAT_TIMEOUT",
                                                                      "SERIAL_PORT_CONFIG",
                                                                      "SerialPortConfig",
                                                                      "SerialPortLinux",
                                                                      "SerialPortWindows",
                                                                      "WriteTotalTimeoutConstant",
                                                                      "WriteTotalTimeoutMultiplier"});
static_assert(std::is_sorted(kConfigurationNames.begin(), kConfigurationNames.end()));

constexpr std::array<std::string_view, 3> kSourcePaths{
    "../src/api/TALVEX", "../src/olk_sat_utils/olk_sat_utils", "../src/olk_utils/olk_utils"};

bool contains(std::span<const std::string_view> names, std::string_view name) {
  return std::binary_search(names.begin(), names.end(), name);
}

}  // namespace

bool is_sat_function(std::string_view name) {
  return contains(kSatFunctions, name);
}

bool is_library_function(std::string_view name) {
  return contains(kLibraryFunctions, name) || is_sat_function(name);
}

bool is_source_path(std::string_view path) {
  return contains(kSourcePaths, path);
}

bool is_configuration_name(std::string_view name) {
  return contains(kConfigurationNames, name) || is_sat_function(name);
}

}  // namespace masking
