// frame/auto_version.h: the identity that the banner tells. Scripts match it, so it stays
// as it is; releases are counted by the project's version, which --version prints.
#pragma once

namespace AutoVersion {

constexpr char FULLVERSION_STRING[] = "2.0.1.1";
constexpr long BUILDS_COUNT = 9;

}  // namespace AutoVersion
