// The program's identification texts.
#pragma once

namespace kelvane {

inline constexpr char VERSION[] = "0.6.5 Build 9444b (fix 2)";
inline constexpr char BUILD_TAG[] = "x64 SSE3 - Linux ~ Meridian";
inline constexpr char CREDITS[] = "Copyright (c) 2026 The Kelvane authors";
inline constexpr char LICENSE_NOTE[] = "(MIT License)";

} // namespace kelvane
