// What satctl doctor packs for the support.
#pragma once

#include <filesystem>
#include <vector>

#include "doctor/doctor.h"

namespace satctl {

// A tar.gz for its owner only: findings, system, SAT.ini, SAT.conf and the logs of the last seven days, all
// masked, and first of all a text that says how and what was left out. Links are not followed. Throws
// UsageError.
void write_support_bundle(const Patient& patient, const std::vector<Finding>& findings,
                          const std::filesystem::path& target);

}  // namespace satctl
