// Requests taken apart: pure functions from bytes to records, and nothing is done yet.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hub/broker/broker.h"
#include "hub/http/messages.h"

namespace hub {

template <typename T>
using Parsed = std::variant<T, Problem>;

struct Target {
  std::vector<std::string> segments;         // decoded
  std::map<std::string, std::string> query;  // decoded
};
Parsed<Target> parse_target(std::string_view target);

struct FiscalBody {
  FiscalRequest request;  // without its key
  std::chrono::seconds wait{60};
};
Parsed<FiscalBody> parse_fiscal(Fiscal function, std::string_view json);

Parsed<FunctionRequest> parse_function(const satctl::Function& function, std::string_view json);

// "decisao": "issued" (with "chaveConsulta"), "not-issued", "undecided" or "confirmed"; "motivo" says why.
Parsed<Settlement> parse_settlement(std::string_view json);

Parsed<ReceiptSearch> parse_receipt_search(const std::map<std::string, std::string>& query);
Parsed<std::chrono::seconds> parse_wait(const std::map<std::string, std::string>& query);

// Visible ASCII, 100 characters at most.
bool is_key(std::string_view text);

}  // namespace hub
