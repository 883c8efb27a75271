// Help and errors of the command line in the user's language.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace satctl {

void speak_users_language(CLI::App& app);

// A parse error in the user's language.
std::string describe(const CLI::ParseError& error);

}  // namespace satctl
