#include "CorvaneControl/Platform/PropertyList.h"

#include <gtest/gtest.h>

namespace {

using CorvaneControl::PropertyList::strings;

TEST(PropertyListBasics, readStrings) {
  const auto members = strings(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
      "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n"
      "<dict><key>a</key><string>b &amp; c</string></dict></plist>\n");
  ASSERT_TRUE(members);
  EXPECT_EQ(members->at("a"), "b & c");
}

}  // namespace
