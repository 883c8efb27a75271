#include "olk_sat_utils/ibge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "olk_utils/trace_log.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct State {
  uint32_t code;
  std::string name;
  std::string abbreviation;
  std::string region;
};

const std::vector<State> kStates = {
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
};

std::string trace_line(const std::string& function, const std::string& text) {
  return "ERR [] [../src/olk_sat_utils/olk_sat_utils] [" + function + "]--- rc[-001]ER:" + text + "\n";
}

class Ibge : public testing::Test {
 protected:
  Ibge() { bTraceLogsEnabled = 1; }
  ~Ibge() override { bTraceLogsEnabled = bErrorLogsEnabled = 0; }
  ScratchDirectory directory_;
};

TEST_F(Ibge, TableHoldsEveryRowAndTheTerminator) {
  ASSERT_EQ(std::size(tTabelaUfIbge), kStates.size() + 1);
  for (size_t i = 0; i < kStates.size(); ++i) {
    EXPECT_EQ(tTabelaUfIbge[i].code, static_cast<int32_t>(kStates[i].code));
    EXPECT_EQ(tTabelaUfIbge[i].stateName, kStates[i].name);
    EXPECT_EQ(tTabelaUfIbge[i].ufName, kStates[i].abbreviation);
    EXPECT_EQ(tTabelaUfIbge[i].regionName, kStates[i].region);
  }
  EXPECT_EQ(tTabelaUfIbge[27].code, 99);
  EXPECT_EQ(tTabelaUfIbge[27].stateName, nullptr);
  EXPECT_EQ(tTabelaUfIbge[27].ufName, nullptr);
  EXPECT_EQ(tTabelaUfIbge[27].regionName, nullptr);
}

TEST_F(Ibge, EveryStateIsFoundAndNothingIsTraced) {
  for (const State& state : kStates) {
    SCOPED_TRACE(state.name);
    EXPECT_EQ(SAT_Get_IBGH_UF_Code(state.name.c_str()), static_cast<int>(state.code));
    EXPECT_STREQ(SAT_Get_IBGE_UF_Name(state.code), state.abbreviation.c_str());
    EXPECT_STREQ(SAT_Get_IBGE_EstateName(state.code), state.name.c_str());
    EXPECT_STREQ(SAT_Get_IBGE_RegionName(state.code), state.region.c_str());
  }
  EXPECT_THAT(trace_messages("SAT_api.log"), IsEmpty());
}

TEST_F(Ibge, NoOtherCodeIsFound) {
  bTraceLogsEnabled = 0;
  std::map<uint32_t, State> known;
  for (const State& state : kStates) known[state.code] = state;
  for (uint32_t code = 0; code < 1000; ++code) {
    if (known.contains(code)) continue;
    EXPECT_EQ(SAT_Get_IBGE_UF_Name(code), nullptr) << code;
    EXPECT_EQ(SAT_Get_IBGE_EstateName(code), nullptr) << code;
    EXPECT_EQ(SAT_Get_IBGE_RegionName(code), nullptr) << code;
  }
  EXPECT_EQ(SAT_Get_IBGE_UF_Name(UINT_MAX), nullptr);
}

TEST_F(Ibge, SaoPauloIs35) {
  EXPECT_EQ(SAT_Get_IBGH_UF_Code("SAO PAULO"), 35);
}

TEST_F(Ibge, AbbreviationIsNoStateName) {
  EXPECT_EQ(SAT_Get_IBGH_UF_Code("SP"), -1);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGH_UF_Code", "pStateName[SP]NOT_FOUND!!!")));
}

TEST_F(Ibge, NullStateName) {
  EXPECT_EQ(SAT_Get_IBGH_UF_Code(nullptr), -1);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGH_UF_Code", "pStateName=NULL")));
}

TEST_F(Ibge, StateNamesAreComparedByteByByte) {
  for (const char* name : {"Sao Paulo", "SÃO PAULO", "SAO PAULO ", " SAO PAULO", "SAO PAUL", ""}) {
    EXPECT_EQ(SAT_Get_IBGH_UF_Code(name), -1) << name;
  }
}

TEST_F(Ibge, Code53IsDf) {
  EXPECT_STREQ(SAT_Get_IBGE_UF_Name(53), "DF");
}

TEST_F(Ibge, TerminatorCode99AndGap34AreNotFound) {
  EXPECT_EQ(SAT_Get_IBGE_UF_Name(99), nullptr);
  EXPECT_EQ(SAT_Get_IBGE_UF_Name(34), nullptr);
  EXPECT_EQ(SAT_Get_IBGE_EstateName(99), nullptr);
  EXPECT_EQ(SAT_Get_IBGE_RegionName(34), nullptr);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGE_UF_Name", "iUfCode[99]NOT_FOUND!!!"),
                          trace_line("SAT_Get_IBGE_UF_Name", "iUfCode[34]NOT_FOUND!!!"),
                          trace_line("SAT_Get_IBGE_EstateName", "iUfCode[99]NOT_FOUND!!!"),
                          trace_line("SAT_Get_IBGE_RegionName", "iUfCode[34]NOT_FOUND!!!")));
}

TEST_F(Ibge, Code24IsRioGrandeDoNorte) {
  EXPECT_STREQ(SAT_Get_IBGE_EstateName(24), "RIO GRANDE DO NORTE");
}

TEST_F(Ibge, RegionOf50IsCentroeste) {
  EXPECT_STREQ(SAT_Get_IBGE_RegionName(50), "CENTROESTE");
}

TEST_F(Ibge, CodeZeroIsNotFound) {
  EXPECT_EQ(SAT_Get_IBGE_UF_Name(0), nullptr);
  EXPECT_EQ(SAT_Get_IBGE_EstateName(0), nullptr);
  EXPECT_EQ(SAT_Get_IBGE_RegionName(0), nullptr);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGE_UF_Name", "iUfCode[00]NOT_FOUND!!!"),
                          trace_line("SAT_Get_IBGE_EstateName", "iUfCode[00]NOT_FOUND!!!"),
                          trace_line("SAT_Get_IBGE_RegionName", "iUfCode[00]NOT_FOUND!!!")));
}

TEST_F(Ibge, MissesAreErrorsInTheLogOfTheSatModules) {
  bTraceLogsEnabled = 0;
  bErrorLogsEnabled = 1;
  SAT_Get_IBGE_UF_Name(98);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGE_UF_Name", "iUfCode[98]NOT_FOUND!!!")));
}

TEST_F(Ibge, LongNamesAndEveryByteValue) {
  std::string name;
  while (name.size() < 10000) name += static_cast<char>(1 + name.size() % 255);
  EXPECT_EQ(SAT_Get_IBGH_UF_Code(name.c_str()), -1);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre(trace_line("SAT_Get_IBGH_UF_Code", "pStateName[" + name + "]NOT_FOUND!!!")));
}

}  // namespace
