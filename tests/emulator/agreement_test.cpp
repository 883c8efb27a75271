// A till that sells and cancels a thousand times over a bad line. Whatever happens to a single call, in the
// end the device and the till must have the same receipts.

#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "device/functions.h"
#include "documents/decimal.h"
#include "emulator/library_host.h"
#include "emulator/sale_data.h"

namespace {

using emulator::split_fields;
using nlohmann::json;

// Often enough for each to happen many times, but for the two that take a till nine seconds to notice.
constexpr const char* kTrouble = R"(
on any chance=3 do nak 2
on any chance=1 do nak 4
on any chance=3 do wrong-checksum 1
on any chance=1 do wrong-checksum 3
on any chance=3 do stray 5
on any chance=2 do stop 12 130
on any chance=2 do split 700 2
on any chance=1 do hangup 9 back=40
on any chance=3 do duplicate
on any chance=3 do previous
on fiscal chance=2 do return 06099 1999
on fiscal chance=2 do processing 2
on fiscal chance=1 do blocked sefaz
on any chance=2 do carry-out-nak
on any chance=2 do stray-stx
on EnviarDadosVenda chance=1 do carry-out-return 06097
on EnviarDadosVenda chance=1 do carry-out-return 06098
on EnviarDadosVenda chance=2 do carry-out-return 06099 stored=yes
on CancelarUltimaVenda chance=2 do carry-out-return 07099
on CancelarUltimaVenda chance=2 do carry-out-return 07098 stored=yes
on EnviarDadosVenda nth=100 do no-reply
on CancelarUltimaVenda nth=20 do drop-ack
)";

struct Document {
  std::string key;
  std::string total;
  std::string session;
  std::string reply;
};

class BadLine : public TillWithEmulator {
 protected:
  static constexpr int kDocuments = 1'000;
  static constexpr int kMostTries = 50;

  BadLine() : TillWithEmulator(280) {}

  int new_session() { return ++session_; }

  void wait_for_device() const {
    while (!std::filesystem::exists(port_named("sat0"))) usleep(1'000);
  }

  static bool answers(const std::string& reply, int session) {
    return reply.starts_with(std::to_string(1'000'000 + session).substr(1) + "|");
  }

  // Whether the reply says what became of the session: xx097, xx098 and xx099 leave it open.
  static bool settles(const std::string& reply, int session) {
    if (!answers(reply, session)) return false;
    const std::string ending = split_fields(reply)[1].substr(2);
    return ending != "097" && ending != "098" && ending != "099";
  }

  // The reply of that session, or nothing if the device never carried it out.
  std::string recover(int lost) {
    for (int i = 0; i < kMostTries; ++i) {
      wait_for_device();
      const int session = new_session();
      std::string reply = library.call("ConsultarNumeroSessao", session, kCode, lost);
      if (settles(reply, lost)) return reply;
      const bool unknown = answers(reply, session) && split_fields(reply)[1] == "11003";
      if (unknown || answers(reply, lost)) return recover_as_last(lost);
    }
    ADD_FAILURE() << "session " << lost << " is not recoverable";
    return "";
  }

  // The last document is that of the lost session, or the one that the till knew before.
  std::string recover_as_last(int lost) {
    for (int i = 0; i < kMostTries; ++i) {
      wait_for_device();
      const int session = new_session();
      std::string reply = library.call("ConsultarUltimaSessaoFiscal", session, kCode);
      if (settles(reply, lost)) {
        ++recovered_as_last_;
        return reply;
      }
      if (reply == last_known_) return "";
      if (last_known_.empty() && answers(reply, session) && split_fields(reply)[1] == "19003") return "";
    }
    ADD_FAILURE() << "session " << lost << " is not recoverable as the last one";
    return "";
  }

  // Calls until the document is issued. A reply that does not settle the call counts as lost.
  template <typename Call>
  Document issue(Call call) {
    for (int i = 0; i < kMostTries; ++i) {
      wait_for_device();
      const int session = new_session();
      std::string reply = call(session);
      if (!settles(reply, session)) {
        ++lost_;
        reply = recover(session);
        if (!reply.empty()) ++recovered_;
      }
      const auto fields = split_fields(reply);
      if (fields.size() == 12 && fields[2] == "0000") {
        last_known_ = reply;
        return {fields[8], fields[9], fields[0], reply};
      }
    }
    ADD_FAILURE() << "the device never issued the document";
    return {};
  }

  Document sell(int cents) {
    SaleData data;
    const std::string amount =
        std::to_string(cents / 100) + "." + std::to_string(100 + cents % 100).substr(1);
    data.items = SaleData::item(1, "1.0000", amount);
    data.payments = SaleData::payment("01", amount);
    const std::string xml = data.xml();
    return issue([&](int session) { return library.call("EnviarDadosVenda", session, kCode, xml.c_str()); });
  }

  Document cancel(const std::string& key) {
    const std::string xml = cancellation_xml(key);
    return issue([&](int session) {
      return library.call("CancelarUltimaVenda", session, kCode, key.c_str(), xml.c_str());
    });
  }

  int session_ = 0;
  int lost_ = 0;
  int recovered_ = 0;
  int recovered_as_last_ = 0;
  std::string last_known_;
};

TEST_F(BadLine, AThousandDocumentsLaterDeviceAndTillAgree) {
  write_file("trouble.txt", kTrouble);
  start({"--faults", "trouble.txt", "--seed", "20260301", "--clock", "2026-03-01T10:00:00", "--state",
         "sat.json"});

  std::vector<Document> documents;
  while (documents.size() < kDocuments && !HasFailure()) {
    documents.push_back(sell(100 + static_cast<int>(documents.size())));
    if (documents.size() % 5 == 0) documents.push_back(cancel(documents.back().key));
  }
  emulator->stop();

  const json state = json::parse(read_file("sat.json"));
  const json& receipts = state["receipts"];
  ASSERT_EQ(receipts.size(), documents.size());
  for (std::size_t i = 0; i < documents.size(); ++i) {
    const json& receipt = receipts[i];
    EXPECT_EQ(receipt["key"], documents[i].key);
    EXPECT_EQ(receipt["session"], std::stoi(documents[i].session));
    EXPECT_EQ(receipt["number"], static_cast<int>(i) + 1);
    EXPECT_EQ(emulator::format_amount(receipt["total"].get<emulator::Cents>()), documents[i].total);
  }
  EXPECT_EQ(state["device"]["last_fiscal_reply"], documents.back().reply);
  // The run proves nothing if nothing went wrong.
  EXPECT_GT(lost_, 50);
  EXPECT_GT(recovered_, 20);
  EXPECT_GT(recovered_as_last_, 5);
  std::printf(
      "%zu documents in %d calls: %d replies lost, %d recovered (%d as the last one), the rest repeated\n",
      documents.size(), session_, lost_, recovered_, recovered_as_last_);
}

}  // namespace
