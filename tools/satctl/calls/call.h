// One call of a SAT function: made, shown, its document saved.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "calls/reply.h"
#include "library/library.h"
#include "terminal/settings.h"

namespace satctl {

constexpr int kLargestSession = 999'999;

// A random one, 1 to 99999, other than the given one: the device refuses the number of the call before.
int draw_session(int other_than = 0);

Reply make_call(const Library& library, const Request& request, const std::vector<std::string>& values);

// The fields by name; show_reply adds what the reply means.
void show_fields(const Library& library, const Reply& reply, const std::string& document_note);
void show_reply(const Library& library, const Reply& reply, const std::string& document_note);
nlohmann::ordered_json json_of(const Library& library, const Reply& reply);

// Says on standard error what a failed call means.
void explain_failure(const Reply& reply);

void print_json(const nlohmann::ordered_json& object);

}  // namespace satctl
