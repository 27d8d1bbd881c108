// What another program reads in base64.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/ChildProcess.h"

namespace host_test {

// The bytes that the text stands for; a failure when it is not valid, or more than one line.
inline std::string decodedBase64(const std::string& text) {
  EXPECT_EQ(text.find('\n'), std::string::npos);
  support::ChildProcess decoder({{"base64", "--decode"}, {}});
  decoder.writeInput(text);
  decoder.closeInput();
  EXPECT_EQ(decoder.wait(), 0) << decoder.error() << text;
  return decoder.output();
}

}  // namespace host_test
