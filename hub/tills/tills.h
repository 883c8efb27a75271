// Who asks: tokens, and what a role may do.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hub/journal/journal.h"

namespace hub {

// Bits, so that a route can name several.
enum Role : unsigned {
  kTill = 1,           // sells, cancels, asks
  kViewer = 2,         // looks at everything
  kSupervisor = 4,     // likewise, and settles what is undecided
  kAdministrator = 8,  // everything
};
std::optional<Role> role_named(std::string_view name);

// Who sent a request.
struct Caller {
  Till till;
  Role role = kTill;
};

// 256 random bits; the journal gets their digest only.
std::string new_token();
std::string digest_of(const std::string& token);

// A till of that name with a new token, which replaces those that it had.
std::string give_token(Journal& journal, const std::string& name, const std::string& role);

std::optional<Caller> caller_with_token(const Journal& journal, const std::string& token);
// Whoever runs the hub, or is root, needs no token on the Unix socket.
Caller local_caller(Journal& journal);

}  // namespace hub
