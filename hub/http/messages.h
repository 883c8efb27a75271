// A request and its answer, apart from how they travel.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hub {

struct Request {
  std::string method;
  std::string target;  // path and query, as they came
  std::string host;
  std::string token;  // of "Authorization: Bearer"
  std::string body;
  bool local = false;  // over the Unix socket, by whoever runs the hub or by root
  bool tcp = true;
};

struct Response {
  int status = 200;
  std::string body;
  std::string type = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;
};

// Bad input; the problem document names the field.
struct Problem {
  int status = 400;
  std::string detail;
  std::string field;
};
Response response_of(const Problem& problem);

}  // namespace hub
