// What is known of each SAT function. Whatever loops over the functions, compares one or prints something of
// it takes it from here.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// Row numbers, in the order of the SAT standard.
enum SatFunctionIndex : uint32_t {
  kAtivarSAT,
  kComunicarCertificadoICPBRASIL,
  kEnviarDadosVenda,
  kCancelarUltimaVenda,
  kConsultarSAT,
  kTesteFimAFim,
  kConsultarStatusOperacional,
  kConsultarNumeroSessao,
  kConfigurarInterfaceDeRede,
  kAssociarAssinatura,
  kAtualizarSoftwareSAT,
  kExtrairLogs,
  kBloquearSAT,
  kDesbloquearSAT,
  kTrocarCodigoDeAtivacao,
  kConsultarUltimaSessaoFiscal,
  kSatFunctionCount,
};

struct SatFunction {
  const char* name;
  const char* code_prefix;     // the first three digits of its return codes
  uint32_t default_timeout_s;  // for the reply
  bool takes_timeout = false;  // kept: nine time-outs of the configuration are read and logged, never applied
  uint8_t busy_reply_fields;   // 6 where the reply carries an alert code, else 5; 0: no busy reply
  bool waits_long = false;     // its device may be silent for minutes
  bool holds_back_size_control = false;  // while it runs in a host that maintains gl_hComm
  bool sells = false;                 // its session is the last sale's; kept: an end-to-end test counts too
  const char* result_file = nullptr;  // beginning of the result file's name; null: none is written
};

inline constexpr SatFunction kSatFunctions[kSatFunctionCount] = {
    {.name = "AtivarSAT",
     .code_prefix = "040",
     .default_timeout_s = 1800,
     .takes_timeout = true,
     .busy_reply_fields = 5,
     .waits_long = true,
     .holds_back_size_control = true},
    {.name = "ComunicarCertificadoICPBRASIL",
     .code_prefix = "050",
     .default_timeout_s = 300,
     .takes_timeout = true,
     .busy_reply_fields = 5},
    {.name = "EnviarDadosVenda",
     .code_prefix = "060",
     .default_timeout_s = 30,
     .takes_timeout = true,
     .busy_reply_fields = 6,
     .holds_back_size_control = true,
     .sells = true,
     .result_file = "venda-cprx-"},
    {.name = "CancelarUltimaVenda",
     .code_prefix = "070",
     .default_timeout_s = 30,
     .takes_timeout = true,
     .busy_reply_fields = 6,
     .holds_back_size_control = true,
     .sells = true,
     .result_file = "canc-cprx-"},
    {.name = "ConsultarSAT",
     .code_prefix = "080",
     .default_timeout_s = 10,
     .takes_timeout = true,
     .busy_reply_fields = 5},
    {.name = "TesteFimAFim",
     .code_prefix = "090",
     .default_timeout_s = 20,
     .takes_timeout = true,
     .busy_reply_fields = 5,
     .holds_back_size_control = true,
     .sells = true},
    {.name = "ConsultarStatusOperacional",
     .code_prefix = "100",
     .default_timeout_s = 10,
     .takes_timeout = true,
     .busy_reply_fields = 5},
    {.name = "ConsultarNumeroSessao", .code_prefix = "110", .default_timeout_s = 20, .busy_reply_fields = 5},
    {.name = "ConfigurarInterfaceDeRede",
     .code_prefix = "120",
     .default_timeout_s = 20,
     .busy_reply_fields = 5},
    {.name = "AssociarAssinatura", .code_prefix = "130", .default_timeout_s = 1800, .busy_reply_fields = 5},
    {.name = "AtualizarSoftwareSAT",
     .code_prefix = "140",
     .default_timeout_s = 1800,
     .busy_reply_fields = 5,
     .waits_long = true,
     .holds_back_size_control = true},
    {.name = "ExtrairLogs",
     .code_prefix = "150",
     .default_timeout_s = 30,
     .busy_reply_fields = 5,
     .holds_back_size_control = true},
    {.name = "BloquearSAT",
     .code_prefix = "160",
     .default_timeout_s = 300,
     .busy_reply_fields = 5,
     .waits_long = true},
    {.name = "DesbloquearSAT", .code_prefix = "170", .default_timeout_s = 20, .busy_reply_fields = 5},
    {.name = "TrocarCodigoDeAtivacao", .code_prefix = "180", .default_timeout_s = 30, .busy_reply_fields = 5},
    // Kept: never answered with a busy reply, but with the error text.
    {.name = "ConsultarUltimaSessaoFiscal",
     .code_prefix = "190",
     .default_timeout_s = 20,
     .busy_reply_fields = 0},
};

// Null for any other name.
inline const SatFunction* find_sat_function(const char* name) {
  for (const SatFunction& function : kSatFunctions) {
    if (strcmp(name, function.name) == 0) return &function;
  }
  return nullptr;
}
