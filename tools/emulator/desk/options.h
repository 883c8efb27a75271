// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace emulator {

// Exit codes; the manual lists them.
inline constexpr int kExitEnded = 0;
inline constexpr int kExitInternal = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitInputFile = 3;
inline constexpr int kExitPort = 4;
inline constexpr int kExitState = 5;
inline constexpr int kExitDeparted = 6;

struct Options {
  // Port.
  std::string link;
  std::string control;
  std::string tcp;
  int latency_ms = 0;
  int byte_delay_us = 0;
  std::string encoding = "utf8";

  // Device.
  std::string state;
  bool activated = false;
  std::optional<std::string> activation_code;
  std::string emergency_code = "emergencia";
  std::optional<std::string> cnpj;
  std::optional<std::string> uf;
  std::optional<std::string> serial;
  std::string battery = "ALTO";
  std::string memory = "1 Gbytes";
  int wrong_codes = 5;
  int sefaz_notice = 0;
  bool offline = false;
  bool strict = false;
  std::optional<std::uint64_t> seed;
  std::string clock;

  // Trouble.
  std::vector<std::string> profiles;
  std::vector<std::string> reply_files;
  std::vector<std::string> fault_files;
  std::vector<std::string> faults;

  // Traffic.
  std::string record;
  bool mask = false;
  std::string replay;
  bool as_recorded = false;
  std::vector<std::string> mask_files;  // IN and OUT

  // Output.
  bool json_log = false;
  bool quiet = false;
};

// Nothing: the program has said what it was asked for (--help) or what is wrong, and ends with `exit_code`.
std::optional<Options> parse_options(int argc, char** argv, int& exit_code);

}  // namespace emulator
