#include "olk_sat_utils/ibge.h"

#include <string.h>

#include "olk_sat_utils/sat_utils_trace.h"

// Kept: "CENTROESTE" is one word.
const UfIbgeRow tTabelaUfIbge[kUfIbgeRowCount] = {
    {11, "RONDONIA", "RO", "NORTE"},
    {12, "ACRE", "AC", "NORTE"},
    {13, "AMAZONAS", "AM", "NORTE"},
    {14, "RORAIMA", "RR", "NORTE"},
    {15, "PARA", "PA", "NORTE"},
    {16, "AMAPA", "AP", "NORTE"},
    {17, "TOCANTINS", "TO", "NORTE"},
    {21, "MARANHAO", "MA", "NORDESTE"},
    {22, "PIAUI", "PI", "NORDESTE"},
    {23, "CEARA", "CE", "NORDESTE"},
    {24, "RIO GRANDE DO NORTE", "RN", "NORDESTE"},
    {25, "PARAIBA", "PB", "NORDESTE"},
    {26, "PERNAMBUCO", "PE", "NORDESTE"},
    {27, "ALAGOAS", "AL", "NORDESTE"},
    {28, "SERGIPE", "SE", "NORDESTE"},
    {29, "BAHIA", "BA", "NORDESTE"},
    {31, "MINAS GERAIS", "MG", "SUDESTE"},
    {32, "ESPIRITO SANTO", "ES", "SUDESTE"},
    {33, "RIO DE JANEIRO", "RJ", "SUDESTE"},
    {35, "SAO PAULO", "SP", "SUDESTE"},
    {41, "PARANA", "PR", "SUL"},
    {42, "SANTA CATARINA", "SC", "SUL"},
    {43, "RIO GRANDE DO SUL", "RS", "SUL"},
    {50, "MATO GROSSO DO SUL", "MS", "CENTROESTE"},
    {51, "MATO GROSSO", "MT", "CENTROESTE"},
    {52, "GOIAS", "GO", "CENTROESTE"},
    {53, "DISTRITO FEDERAL", "DF", "CENTROESTE"},
    {99, nullptr, nullptr, nullptr},
};

namespace {

constexpr int kNotFound = TALVEX_IBGE_NOT_FOUND;

using TextField = const char* UfIbgeRow::*;

// The code of the last row never matches: its missing texts end the scan first.
const char* text_of_code(const char* function, uint32_t code, TextField field) {
  for (const UfIbgeRow* row = tTabelaUfIbge; row->*field != nullptr; ++row) {
    if (static_cast<uint32_t>(row->code) == code) return row->*field;
  }
  SAT_UTILS_TRACE_IN(function, kError, "--- rc[%04d]ER:iUfCode[%02d]NOT_FOUND!!!\n", kNotFound,
                     static_cast<int>(code));
  return nullptr;
}

}  // namespace

int SAT_Get_IBGH_UF_Code(const char* pStateName) {
  if (pStateName == nullptr) {
    SAT_UTILS_TRACE(kError, "--- rc[%04d]ER:pStateName=NULL\n", kNotFound);
    return kNotFound;
  }
  for (const UfIbgeRow* row = tTabelaUfIbge; row->stateName != nullptr; ++row) {
    if (strcmp(row->stateName, pStateName) == 0) return row->code;
  }
  SAT_UTILS_TRACE(kError, "--- rc[%04d]ER:pStateName[%s]NOT_FOUND!!!\n", kNotFound, pStateName);
  return kNotFound;
}

const char* SAT_Get_IBGE_UF_Name(uint32_t iUfCode) {
  return text_of_code(__func__, iUfCode, &UfIbgeRow::ufName);
}

const char* SAT_Get_IBGE_EstateName(uint32_t iUfCode) {
  return text_of_code(__func__, iUfCode, &UfIbgeRow::stateName);
}

const char* SAT_Get_IBGE_RegionName(uint32_t iUfCode) {
  return text_of_code(__func__, iUfCode, &UfIbgeRow::regionName);
}
