#include "documents/encoding.h"

#include <gtest/gtest.h>

#include "device/messages.h"
#include "documents/rejection.h"

namespace emulator {
namespace {

TEST(Latin1, HasOneByteForEachLetter) {
  EXPECT_EQ(to_latin1("SAT em operação"), "SAT em opera\xE7\xE3o");
  EXPECT_EQ(to_latin1("ÀÿÁ 25 § não"), "\xC0\xFF\xC1 25 \xA7 n\xE3o");
  EXPECT_EQ(to_latin1("plain|text"), "plain|text");
  EXPECT_EQ(to_latin1("\xE2\x82\xAC \xF0\x9F\x98\x80 \xC4\x80"), "? ? ?");  // not in the code page's letters
}

TEST(Latin1, LeavesBytesThatAreNoUtf8) {
  for (const char* bytes : {"\xE7\xE3o", "\xC3", "a\xC3|", "\x80\xBF", "\xF0\x9F|", "\xC0\xAF"}) {
    EXPECT_EQ(to_latin1(bytes), bytes);
    EXPECT_EQ(without_accents(bytes), bytes);
  }
}

TEST(Ascii, HasTheBareLetters) {
  EXPECT_EQ(without_accents("Código de ativação inválido"), "Codigo de ativacao invalido");
  EXPECT_EQ(without_accents("ÁÂÃÀÇÉÊÍÓÔÕÚÜ áâãàçéêíóôõúü Ññ"), "AAAACEEIOOOUU aaaaceeiooouu Nn");
  EXPECT_EQ(without_accents("\xE2\x82\xAC§"), "??");
}

TEST(Utf8, EndsAtTheFirstByteOfNoCharacter) {
  for (const char* text : {"", "plain", "operação", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(first_byte_not_utf8(text), std::nullopt) << text;
  }
  for (const char* text :
       {"ab\xE7\xE3o", "ab\xC3", "ab\x80", "ab\xC0\xAF", "ab\xE0\x80\xAF", "ab\xED\xA0\x80",
        "ab\xF4\x90\x80\x80", "ab\xF5\x80\x80\x80", "ab\xFF", "ab\xE2\x82"}) {
    EXPECT_EQ(first_byte_not_utf8(text), 2U) << text;
  }
}

TEST(DeclaredEncoding, IsThatOfTheXmlDeclaration) {
  EXPECT_EQ(declared_encoding("<CFe/>"), "utf-8");
  EXPECT_EQ(declared_encoding("<?xml version=\"1.0\"?><CFe/>"), "utf-8");
  EXPECT_EQ(declared_encoding("<?xml version='1.0' encoding='UTF-8'?>"), "utf-8");
  EXPECT_EQ(declared_encoding(" <?xml version=\"1.0\" encoding = \"ISO-8859-1\" ?>"), "iso-8859-1");
  EXPECT_EQ(declared_encoding("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"Windows-1252\"?>"),
            "windows-1252");
  for (const char* broken :
       {"", "<?xml", "<?xml encoding", "<?xml encoding=\"x", "<?xml?><a encoding=\"x\"/>"}) {
    EXPECT_EQ(declared_encoding(broken), "utf-8") << broken;
  }
}

TEST(Texts, FitIntoEveryEncoding) {
  const auto check = [](std::string_view text) {
    EXPECT_EQ(to_latin1(text).find('?'), std::string::npos) << text;
    for (const char c : without_accents(text)) EXPECT_TRUE(c >= ' ' && c < 0x7F && c != '?') << text;
  };
  for (int code = 4'000; code < 20'000; ++code) check(return_code_message(code));
  for (const CauseRow& row : causes()) check(row.text);
}

}  // namespace
}  // namespace emulator
