// The bodies and targets that tills send to the hub. What is accepted keeps within its limits.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "hub/http/parsing.h"

namespace {

void require(bool rule) {
  if (!rule) std::abort();
}

void check_fiscal(hub::Fiscal function, std::string_view text) {
  const auto parsed = hub::parse_fiscal(function, text);
  const auto* body = std::get_if<hub::FiscalBody>(&parsed);
  if (body == nullptr) return require(std::get<hub::Problem>(parsed).status == 400);
  require(!body->request.body.empty());
  require(body->request.body.find('\0') == std::string::npos);
  require(body->request.patience.count() >= 1 && body->request.patience.count() <= 600);
  require(body->wait.count() >= 0 && body->wait.count() <= 60);
  require(function == hub::Fiscal::sale || hub::AccessKey::parse(body->request.cancels));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check_fiscal(hub::Fiscal::sale, text);
  check_fiscal(hub::Fiscal::cancellation, text);
  hub::parse_settlement(text);
  for (const auto& function : satctl::functions()) hub::parse_function(function, text);
  const auto target = hub::parse_target(text);
  if (const auto* path = std::get_if<hub::Target>(&target)) {
    hub::parse_receipt_search(path->query);
    hub::parse_wait(path->query);
  }
  return 0;
}
