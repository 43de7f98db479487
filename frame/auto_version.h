// frame/auto_version.h: the version that the banner shows. Scripts match it, so it never
// changes; the version of a release is the project's, which --version prints.
#pragma once

namespace AutoVersion {

constexpr char FULLVERSION_STRING[] = "2.0.1.1";
constexpr long BUILDS_COUNT = 9;

}  // namespace AutoVersion
