// The limits of every wait, at their true length, as data. A test plays each rule in virtual time; the table
// in docs/tables/times.md is printed from the same rules.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/scripted_device.h"
#include "talvex/talvex.h"

namespace time_rules {

// How the line is when the call begins.
enum class Line {
  kEmpty,
  kFull,     // takes no byte until the device reads; a take of nothing in the script takes all but what is
             // left of the command
  kRunsOver  // garbage comes in for as long as the port is emptied, ten bytes in a millisecond
};

struct Rule {
  const char* what;
  const char* function;
  char* (*call)();
  scripted::Script script;
  int code;                   // of the failure text; 0: the reply comes
  std::int64_t ms;            // from the start of the call to its end
  const char* why;            // how the time is made up
  const char* settings = "";  // lines of section SAT_TIMEOUT
  Line line = Line::kEmpty;
  std::string reply = "000042|R";
};

// Failures of sending have codes of their own, but for the write that stalls.
inline bool is_failure_of_sending(const Rule& rule) {
  return rule.code > -2000 || rule.line == Line::kFull;
}

inline char* activate() {
  return AtivarSAT(42, 1, "12345678", "11222333000181", 35);
}
inline char* associate() {
  return AssociarAssinatura(42, "12345678", "1122233300018111222333000181", "QUJD");
}
inline char* block() {
  return BloquearSAT(42, "12345678");
}
inline char* update() {
  return AtualizarSoftwareSAT(42, "12345678");
}
inline char* certify() {
  return ComunicarCertificadoICPBRASIL(42, "12345678", "-----BEGIN CERTIFICATE-----");
}
inline char* cancel() {
  return CancelarUltimaVenda(42, "12345678", "CFe", "<CFeCanc/>");
}
inline char* test() {
  return TesteFimAFim(42, "12345678", "<CFe/>");
}
inline char* status() {
  return ConsultarStatusOperacional(42, "12345678");
}
inline char* session() {
  return ConsultarNumeroSessao(42, "12345678", 41);
}
inline char* configure_network() {
  return ConfigurarInterfaceDeRede(42, "12345678", "<config/>");
}
inline char* extract_logs() {
  return ExtrairLogs(42, "12345678");
}
inline char* unblock() {
  return DesbloquearSAT(42, "12345678");
}
inline char* change_code() {
  return TrocarCodigoDeAtivacao(42, "12345678", 1, "87654321", "87654321");
}
inline char* last_session() {
  return ConsultarUltimaSessaoFiscal(42, "12345678");
}
inline char* query() {
  return ConsultarSAT(42);
}
inline char* sell() {
  return EnviarDadosVenda(42, "12345678", "<CFe/>");
}

// A sale whose frame is one whole block.
inline constexpr std::size_t kLongSale = scripted::kBlock;
inline char* sell_a_block() {
  constexpr std::size_t kAround = sizeof "\x02" "EnviarDadosVenda|000042|12345678|" "\x04\x03" - 1;
  static const std::string sale(kLongSale - kAround, 'v');
  return EnviarDadosVenda(42, "12345678", sale.c_str());
}

// A reply of one byte every 100 ms.
inline scripted::Script drip(const std::string& bytes) {
  scripted::Script script;
  for (const char byte : bytes) {
    script.push_back(scripted::pause_ms(100));
    script.push_back(scripted::send({byte}));
  }
  return script;
}

inline std::vector<Rule> rules() {
  using namespace scripted;
  const Script acknowledged = {expect_frame(), ack()};
  const Script reply = {send_frame("000042|R"), expect_ack()};
  const Script damaged = {send_bad_frame("000042|R"), expect_nak()};
  const Script broken_off = {send("\x02"
                                  "000042"),
                             expect_nak()};
  const auto after = [&](std::int64_t ms) { return acknowledged + Script{pause_ms(ms)} + reply; };
  const Script stray = {send("Z")};
  const std::string long_text = text_for_frame_of(3009);
  const Script dripped = acknowledged + drip(frame(long_text)) + Script{expect_ack()};
  return {
      // Emptying the port before the command goes out.
      {"garbage that does not end while the port is emptied", "ConsultarSAT", query,
       Script{flood("garbage..."), expect_frame(), ack()} + reply, 0, 60001,
       "60 s, then the command goes out all the same", "", Line::kRunsOver},
      // Writing: 2 s without a byte taken.
      {"the line takes no byte",
       "ConsultarSAT",
       query,
       {pause_ms(2002)},
       -2007,
       2001,
       "2 s",
       "",
       Line::kFull},
      {"the line takes no byte",
       "AtivarSAT",
       activate,
       {pause_ms(2002)},
       -2007,
       2001,
       "long functions too",
       "",
       Line::kFull},
      {"the line takes bytes every 2 s", "EnviarDadosVenda", sell_a_block,
       Script{pause_ms(2000), take(8192), pause_ms(2000), take(8192), pause_ms(2000), take(0), ack()} + reply,
       0, 6000, "each byte taken renews the 2 s", "", Line::kFull},
      // The wait for the ACK: four times 3 s.
      {"no ACK", "ConsultarSAT", query, {expect_frame()}, -2, 12000, "4 x 3 s"},
      {"no ACK", "AtivarSAT", activate, {expect_frame()}, -2, 12000, "4 x 3 s, long functions too"},
      {"ACK in the last moment", "ConsultarSAT", query,
       Script{expect_frame(), pause_ms(11999), ack()} + reply, 0, 11999, "in the fourth wait"},
      {"no ACK behind a NAK",
       "ConsultarSAT",
       query,
       {expect_frame(), nak(), expect_frame()},
       -2,
       12000,
       "each answer has its own waits"},
      // The wait for the reply: three times 3 s, whatever the time-out; 120 s for three functions.
      {"no reply", "ConsultarSAT", query, acknowledged, -2003, 9000, "3 x 3 s"},
      {"no reply", "EnviarDadosVenda", sell, acknowledged, -2003, 9000, "3 x 3 s"},
      {"no reply", "AssociarAssinatura", associate, acknowledged, -2003, 9000,
       "3 x 3 s; its 1,800 s do not count"},
      {"reply in the last moment", "ConsultarSAT", query, after(8999), 0, 8999, "in the third wait"},
      {"no reply", "AtivarSAT", activate, acknowledged, -2004, 2040001,
       "2 x 120 s + 1,800 s from the third wait on"},
      {"no reply", "AtualizarSoftwareSAT", update, acknowledged, -2004, 2040001, "2 x 120 s + 1,800 s"},
      {"no reply", "BloquearSAT", block, acknowledged, -2004, 540001, "2 x 120 s + 300 s"},
      {"reply in the last moment", "AtivarSAT", activate, after(2040000), 0, 2040000,
       "the limit itself still counts"},
      {"reply a moment too late", "AtivarSAT", activate, acknowledged + Script{pause_ms(2040002)}, -2004,
       2040001, ""},
      {"no reply, AtivarSAT=60", "AtivarSAT", activate, acknowledged, -2004, 360000,
       "3 x 120 s: the clock is looked at behind the waits", "AtivarSAT=60\n"},
      {"no reply, AtivarSAT=600", "AtivarSAT", activate, acknowledged, -2004, 840001, "2 x 120 s + 600 s",
       "AtivarSAT=600\n"},
      {"reply damaged after 250 s, then silence", "AtivarSAT", activate,
       acknowledged + Script{pause_ms(250000)} + damaged, -2004, 370000,
       "the third wait, of 120 s: the 100 ms behind a damaged reply have long passed"},
      {"reply damaged after 400 s, then silence", "AtivarSAT", activate,
       acknowledged + Script{pause_ms(400000)} + damaged, -2003, 5920000,
       "the waits are used up: 400 s + 46 x 120 s, the first end behind 3 x 1,800 s"},
      {"reply damaged after 400 s, then silence", "BloquearSAT", block,
       acknowledged + Script{pause_ms(400000)} + damaged, -2003, 1360000,
       "400 s + 8 x 120 s, the first end behind 3 x 300 s"},
      // The wait for the STX, once anything has come in.
      {"stray byte, then silence", "ConsultarSAT", query, acknowledged + stray, -2004, 10001,
       "time-out of 10 s"},
      {"stray byte, then silence", "EnviarDadosVenda", sell, acknowledged + stray, -2004, 30001,
       "time-out of 30 s"},
      {"stray byte, then silence", "ComunicarCertificadoICPBRASIL", certify, acknowledged + stray, -2004,
       300001, "time-out of 300 s"},
      {"stray byte, then silence", "AssociarAssinatura", associate, acknowledged + stray, -2004, 1800001,
       "time-out of 1,800 s"},
      {"stray byte, then silence", "CancelarUltimaVenda", cancel, acknowledged + stray, -2004, 30001,
       "time-out of 30 s"},
      {"stray byte, then silence", "TesteFimAFim", test, acknowledged + stray, -2004, 20001,
       "time-out of 20 s"},
      {"stray byte, then silence", "ConsultarStatusOperacional", status, acknowledged + stray, -2004, 10001,
       "time-out of 10 s"},
      {"stray byte, then silence", "ConsultarNumeroSessao", session, acknowledged + stray, -2004, 20001,
       "time-out of 20 s"},
      {"stray byte, then silence", "ConfigurarInterfaceDeRede", configure_network, acknowledged + stray,
       -2004, 20001, "time-out of 20 s"},
      {"stray byte, then silence", "AtualizarSoftwareSAT", update, acknowledged + stray, -2004, 1800001,
       "time-out of 1,800 s"},
      {"stray byte, then silence", "AtivarSAT", activate, acknowledged + stray, -2004, 1800001,
       "time-out of 1,800 s"},
      {"stray byte, then silence", "ExtrairLogs", extract_logs, acknowledged + stray, -2004, 30001,
       "time-out of 30 s"},
      {"stray byte, then silence", "BloquearSAT", block, acknowledged + stray, -2004, 300001,
       "time-out of 300 s"},
      {"stray byte, then silence", "DesbloquearSAT", unblock, acknowledged + stray, -2004, 20001,
       "time-out of 20 s"},
      {"stray byte, then silence", "TrocarCodigoDeAtivacao", change_code, acknowledged + stray, -2004, 30001,
       "time-out of 30 s"},
      {"stray byte, then silence", "ConsultarUltimaSessaoFiscal", last_session, acknowledged + stray, -2004,
       20001, "time-out of 20 s"},
      {"stray byte, then silence, EnviarDadosVenda=99999999", "EnviarDadosVenda", sell, acknowledged + stray,
       -2004, 2147483001, "clamped to 2,147,483 s", "EnviarDadosVenda=99999999\n"},
      {"stray byte after 5 s, then silence", "ConsultarSAT", query,
       acknowledged + Script{pause_ms(5000)} + stray, -2004, 13001,
       "a wait that ran out renews the start: 3 s + 10 s"},
      // Inside the reply: 100 ms between two reads; the attempt behind it has 300 ms or 100 ms for its STX.
      {"gap of 100 ms", "ConsultarSAT", query,
       acknowledged + Script{send("\x02"
                                  "0000"),
                             await_reader(), pause_ms(100), send(frame("000042|R").substr(5)), expect_ack()},
       0, 100, "is allowed"},
      {"one byte every 100 ms", "ConsultarSAT", query, dripped, 0, 300900,
       "3,009 x 100 ms: each byte renews the limit, the time-out of 10 s is for the STX", "", Line::kEmpty,
       long_text},
      {"three gaps", "ConsultarSAT", query, acknowledged + 3 * broken_off, -2006, 303, "3 x 101 ms"},
      {"gap, then a stray byte", "ConsultarSAT", query, acknowledged + broken_off + stray, -2004, 402,
       "101 ms + 301 ms"},
      {"gap, then silence", "ConsultarSAT", query, acknowledged + broken_off, -2003, 9101,
       "101 ms + 3 x 3 s"},
      {"gap, then silence", "AtivarSAT", activate, acknowledged + broken_off, -2004, 360101,
       "101 ms + 3 x 120 s: 300 ms have long passed"},
      {"three bad checksums", "ConsultarSAT", query, acknowledged + 3 * damaged, -2005, 0, "no wait at all"},
      {"bad checksum, then a stray byte", "ConsultarSAT", query, acknowledged + damaged + stray, -2004, 101,
       "100 ms"},
      {"bad checksum, then the reply 8,999 ms later", "ConsultarSAT", query,
       acknowledged + damaged + Script{pause_ms(8999)} + reply, 0, 8999,
       "taken: the limit is looked at on an empty read only"},
      // Waits share one counter for the whole call.
      {"reply damaged after 5 s, sent again after 5 s", "ConsultarSAT", query,
       acknowledged + Script{pause_ms(5000)} + damaged + Script{pause_ms(5000)} + reply, 0, 10000,
       "2 of the 3 waits used up"},
      {"reply damaged after 7 s, then silence", "ConsultarSAT", query,
       acknowledged + Script{pause_ms(7000)} + damaged, -2003, 10000,
       "2 waits before, the third behind: 7 s + 3 s"},
  };
}

}  // namespace time_rules
