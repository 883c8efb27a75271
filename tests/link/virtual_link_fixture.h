// A link whose device gets its turns from within the library's waits: no thread, no real time, the same
// exchange every time.
#pragma once

#include "link/link_fixture.h"
#include "support/virtual_clock.h"

class VirtualLinkTest : public LinkTest {
 protected:
  VirtualLinkTest() : LinkTest(virtual_clock::monotonic_ms) {
    virtual_clock::on_turn([this] { return device().take_turn(); });
  }
  ~VirtualLinkTest() override { virtual_clock::on_turn(nullptr); }

  // The device's part is over and right.
  void expect_script_played() { EXPECT_EQ(device().verdict(), ""); }
};
