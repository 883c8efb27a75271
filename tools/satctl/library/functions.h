// The functions of the standard, as data: names, parameters, limits and the fields of their replies.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/text.h"

namespace satctl {

enum class ParameterKind {
  text,             // a value, @FILE or -
  xml,              // the same, and nothing but XML, so that no file's name goes to the device in its place
  certificate,      // the same with PEM
  signature,        // the same with base64
  activation_code,  // also from SAT_CODIGO; a secret
  secret,           // a secret, without a default
  taxpayer,         // CNPJ: masked in logs
  number,
  state,  // IBGE code or two letters
  session,
};

struct Parameter {
  const char* option;  // without the dashes
  const char* name;    // in the standard
  ParameterKind kind;
  Text help;
};

enum class FieldKind {
  plain,
  long_text,  // shown shortened on the screen
  document,   // base64 of a document: saved, not shown
  taxpayer,   // CPF or CNPJ: masked in logs
  secret,     // activation code: masked in logs
};

struct Field {
  const char* name;
  FieldKind kind = FieldKind::plain;
};

// What a call whose reply got lost may have left behind.
enum class Effect { none, change, fiscal };

// Queries for an earlier reply answer with that reply, word by word.
enum class ReplySession { own, asked, any };

using Caller = std::string (*)(void* address, int session, const std::vector<std::string>& values);

struct Function {
  const char* name;
  Caller call;
  const char* command;  // the name in kebab case
  int code_prefix;      // EEEEE of its replies, without the last two digits
  std::span<const Parameter> parameters;
  std::span<const Field> fields;
  int limit_seconds;
  bool limit_configurable;  // whether SAT.ini can change it
  Effect effect;
  ReplySession reply_session;
  Text help;
};

std::span<const Function> functions();

// By either name, whatever the case; null if there is none.
const Function* find_function(std::string_view name);
// By a return code of five digits.
const Function* find_function_by_code(std::string_view code);

bool is_success_code(int code);

// Why the device refused.
struct RefusalClass {
  const char* pattern;  // EEEEE; "x" is any digit
  const char* name;
  Text meaning;
};
const RefusalClass& refusal_class(std::string_view code);

}  // namespace satctl
