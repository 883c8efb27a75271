// The limits of every wait, at their true length, as data. A test plays each rule in virtual time; the table
// in docs/reliability.md is printed from the same rules.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/scripted_device.h"
#include "talvex/talvex.h"

namespace time_rules {

struct Rule {
  const char* what;
  const char* function;
  char* (*call)();
  scripted::Script script;
  int code;                   // of the failure text; 0: the reply comes
  std::int64_t ms;            // from the start of the call to its end
  const char* why;            // how the time is made up
  const char* settings = "";  // lines of section SAT_TIMEOUT
};

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
inline char* query() {
  return ConsultarSAT(42);
}
inline char* sell() {
  return EnviarDadosVenda(42, "12345678", "<CFe/>");
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
  return {
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
      // The wait for the STX, once anything has come in.
      {"stray byte, then silence", "ConsultarSAT", query, acknowledged + stray, -2004, 10001,
       "time-out of 10 s"},
      {"stray byte, then silence", "EnviarDadosVenda", sell, acknowledged + stray, -2004, 30001,
       "time-out of 30 s"},
      {"stray byte, then silence", "ComunicarCertificadoICPBRASIL", certify, acknowledged + stray, -2004,
       300001, "time-out of 300 s"},
      {"stray byte, then silence", "AssociarAssinatura", associate, acknowledged + stray, -2004, 1800001,
       "time-out of 1,800 s"},
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
