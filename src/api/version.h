// What the library says of itself in log lines and failure texts.
#pragma once

inline constexpr char kVersionText[] = "TALVEX DLL Ver. 02.00";
inline constexpr char kLibraryDate[] = "23-JUL-2020";
inline constexpr char kBuildStamp[] = "Jul 27 2020-10:41:14";
inline constexpr int kPlatformBits = 64;
