// Logs that go on being written.
#pragma once

#include <filesystem>
#include <functional>

#include "log/log_loading.h"

namespace satctl {

// Calls show(logs) for what is written behind `ends`; of the records those that are new have not been shown.
// `joined` holds what came before.
[[noreturn]] void follow_logs(const std::filesystem::path& folder, const Ends& ends, const JoinedLogs& joined,
                              const std::function<void(const JoinedLogs&)>& show);

}  // namespace satctl
