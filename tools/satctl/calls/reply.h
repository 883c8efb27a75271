// A reply of the library: its fields, and what they mean for the caller.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "calls/settlement.h"
#include "library/functions.h"
#include "terminal/exit_status.h"

namespace satctl {

// The class of a reply that does not decide about a sale or cancellation.
inline constexpr const char* kUnsettledName = "unsettled";

struct NamedField {
  std::string name;
  FieldKind kind;
  std::string value;
};

struct Request {
  const Function* function;
  int session = 0;
  int asked_session = -1;  // the session that a query is about
};

class Reply {
 public:
  Reply(const Request& request, std::string raw);

  const Request& request() const { return request_; }
  const std::string& raw() const { return raw_; }
  const std::vector<NamedField>& fields() const { return fields_; }
  std::string_view field(std::string_view name) const;  // empty if there is none

  ExitStatus status() const { return status_; }
  const std::string& return_code() const { return return_code_; }  // EEEEE or empty
  int number() const { return number_; }  // EEEEE, or the code of a failure of the library
  int session() const;                    // of the first field, -1 if it is no number
  Evidence evidence() const;
  // Class of a refusal, "unsettled", or the name of the exit status.
  std::string_view outcome() const;
  std::string meaning() const;
  const NamedField* document() const;  // the field with a document in base64, if it holds one

 private:
  void read_fields();
  bool session_fits() const;
  bool answers_itself() const;
  bool unsettled() const;
  ExitStatus judge() const;
  ExitStatus judge_fiscal() const;

  Request request_;
  std::string raw_;
  std::vector<NamedField> fields_;
  std::string return_code_;
  int number_ = 0;
  ExitStatus status_ = ExitStatus::link_failure;
};

std::vector<std::string> split_fields(std::string_view text);

// The fields with the names that the layout gives them.
std::vector<NamedField> name_fields(const Function* layout, const std::vector<std::string>& values);

// The code of a text that begins "SAT Erro[".
std::optional<int> library_failure(std::string_view text);

}  // namespace satctl
