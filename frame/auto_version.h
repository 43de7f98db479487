// frame/auto_version.h: the identity of the build.
#pragma once

namespace AutoVersion {

constexpr char FULLVERSION_STRING[] = "2.0.1.1";
constexpr long BUILDS_COUNT = 9;

}  // namespace AutoVersion
