#include "hub/tills/tills.h"

#include <algorithm>
#include <array>

#include "hub/encoding.h"

namespace hub {

namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr const char* kLocalName = "local";

struct RoleRow {
  std::string_view name;
  Role role;
};
constexpr std::array kRoles{RoleRow{"till", kTill}, RoleRow{"viewer", kViewer},
                            RoleRow{"supervisor", kSupervisor}, RoleRow{"administrator", kAdministrator}};

}  // namespace

std::optional<Role> role_named(std::string_view name) {
  const auto* found =
      std::find_if(kRoles.begin(), kRoles.end(), [name](const RoleRow& row) { return row.name == name; });
  if (found == kRoles.end()) return std::nullopt;
  return found->role;
}

std::string new_token() {
  return hexadecimal(random_bytes(kTokenBytes));
}

std::string digest_of(const std::string& token) {
  return sha256(token);
}

std::string give_token(Journal& journal, const std::string& name, const std::string& role) {
  const auto known = journal.till_named(name);
  const Till till = known ? *known : journal.add_till(name, role);
  const std::string token = new_token();
  journal.revoke_tokens(till.id);
  journal.add_token(till.id, digest_of(token));
  return token;
}

std::optional<Caller> caller_with_token(const Journal& journal, const std::string& token) {
  const auto till = journal.till_with_token(digest_of(token));
  const auto role = till ? role_named(till->role) : std::nullopt;
  if (!role) return std::nullopt;
  return Caller{*till, *role};
}

Caller local_caller(Journal& journal) {
  const auto known = journal.till_named(kLocalName);
  return {known ? *known : journal.add_till(kLocalName, "administrator"), kAdministrator};
}

}  // namespace hub
