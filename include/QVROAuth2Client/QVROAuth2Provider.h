// The names of the identity providers. Compared exactly, case included.
#pragma once

#include <string_view>

inline constexpr std::string_view QVROAuth2ProviderGoogle = "Google";
inline constexpr std::string_view QVROAuth2ProviderMicrosoft = "Microsoft";
