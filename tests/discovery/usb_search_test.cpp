// The search over a mocked USB bus, with the real find, udevadm and grep: a host program runs inside
// umockdev-run and sees nothing but the bus that the test describes.
#include <cstdio>

#include "support/api_trace.h"
#include "support/usb_bus.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class UsbSearch : public ApiTraceTest {
 protected:
  // What the host printed: the result, a blank and the name, for the first search and for another one after
  // each change.
  std::string search(const std::vector<UsbNode>& nodes, const std::vector<std::string>& changes = {}) {
    write_file("bus.umockdev", UsbBus(nodes).description());
    // umockdev's library comes in front of a sanitizer's, which otherwise insists on the first place.
    std::string command =
        "umockdev-run --device bus.umockdev -- env ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS " TALVEX_FIND_SAT_HOST;
    for (const std::string& change : changes) command += " '" + change + "'";
    command += " 2>errors";
    FILE* host = popen(command.c_str(), "re");
    if (host == nullptr) return "popen failed";
    std::string output;
    for (int character; (character = std::fgetc(host)) != EOF;) output += static_cast<char>(character);
    const int status = pclose(host);
    EXPECT_EQ(status, 0) << read_file("errors");
    found_ = with_text(take_lines(), "]WR portNameFmt[");
    return output;
  }

  static std::string found_line(int number, const std::string& name) {
    return api_line("INF", "findSat",
                    printed("Lnx: rc[%06d]WR portNameFmt[%05d:%s\n]\n", number,
                            static_cast<int>(name.size()) + 1, name.c_str()));
  }

  Lines found_;  // a line per device that the search printed
};

TEST_F(UsbSearch, EmptyBus) {
  EXPECT_EQ(search({}), "-2000 /dev/ttyNONE\n");
  EXPECT_THAT(found_, IsEmpty());
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyNONE");
}

TEST_F(UsbSearch, DevicesOfOtherMakers) {
  EXPECT_EQ(search({{"ttyACM0", {"ID_MODEL=Scanner", "ID_VENDOR=Other"}}, {"ttyACM1", {"ID_MODEL=Talvex"}}}),
            "-2000 /dev/ttyNONE\n");
  EXPECT_THAT(found_, IsEmpty());
}

TEST_F(UsbSearch, OneDeviceByModel) {
  EXPECT_EQ(search({{"ttyACM1", {"ID_MODEL=TALVEX_SAT"}}}), "0 /dev/ttyACM1\n");
  EXPECT_THAT(found_, ElementsAre(found_line(0, "/dev/ttyACM1")));
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM1");
}

TEST_F(UsbSearch, OneDeviceByVendor) {
  EXPECT_EQ(search({{"ttyACM0", {"ID_VENDOR=TALVEX", "ID_MODEL=SAT"}}}), "0 /dev/ttyACM0\n");
}

TEST_F(UsbSearch, OneDeviceByTheOtherModelName) {
  EXPECT_EQ(search({{"ttyACM12", {"ID_MODEL=VDR-K20"}}}), "0 /dev/ttyACM12\n");
  EXPECT_THAT(found_, ElementsAre(found_line(0, "/dev/ttyACM12")));
}

TEST_F(UsbSearch, OneAmongOthers) {
  EXPECT_EQ(search({{"ttyACM0", {"ID_MODEL=Scanner"}},
                    {"ttyACM1", {"ID_MODEL=TALVEX_SAT"}},
                    {"ttyUSB0", {"ID_MODEL=Printer"}}}),
            "0 /dev/ttyACM1\n");
  EXPECT_THAT(found_, SizeIs(1));
}

// Which of two comes last is the order of the directory; the search says both, and the second is taken.
TEST_F(UsbSearch, TwoDevicesWithTheLastWinning) {
  const std::string output =
      search({{"ttyACM0", {"ID_MODEL=TALVEX_SAT"}}, {"ttyACM1", {"ID_MODEL=VDR-K20"}}});
  ASSERT_THAT(found_, SizeIs(2));
  const bool first_comes_last = found_[1] == found_line(1, "/dev/ttyACM0");
  EXPECT_THAT(found_, first_comes_last
                          ? ElementsAre(found_line(0, "/dev/ttyACM1"), found_line(1, "/dev/ttyACM0"))
                          : ElementsAre(found_line(0, "/dev/ttyACM0"), found_line(1, "/dev/ttyACM1")));
  EXPECT_EQ(output, first_comes_last ? "0 /dev/ttyACM0\n" : "0 /dev/ttyACM1\n");
}

// The match on the USB device itself, whose node is no serial port, is never a result.
TEST_F(UsbSearch, WrongNodeName) {
  EXPECT_EQ(search({{"ttyUSB0", {"ID_MODEL=TALVEX_SAT"}}}), "-2000 /dev/ttyNONE\n");
  EXPECT_THAT(found_, IsEmpty());
}

TEST_F(UsbSearch, MatchingPropertyOnSomethingElse) {
  EXPECT_EQ(search({{"input/event3", {"ID_MODEL=TALVEX_SAT"}}, {"video0", {"ID_VENDOR=VDR-K20"}}}),
            "-2000 /dev/ttyNONE\n");
  EXPECT_THAT(found_, IsEmpty());
}

TEST_F(UsbSearch, FixedPortBesideADevice) {
  write_file("SAT.ini", "#\n[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyUSB0\n");
  EXPECT_EQ(search({{"ttyACM0", {"ID_MODEL=TALVEX_SAT"}}}), "0 /dev/ttyUSB0\n");
}

// The first device comes back under another name: its folder, its name in sysfs and its link all change.
std::string renamed(const std::string& from, const std::string& to) {
  return "cd $UMOCKDEV_DIR/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/tty && mv " + from + " " +
         to + " && sed -i s/" + from + "/" + to + "/ " + to +
         "/uevent && cd $UMOCKDEV_DIR/sys/class/tty && rm " + from +
         " && ln -s ../../devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/tty/" + to + " " + to;
}

TEST_F(UsbSearch, FindsADeviceThatComesBackUnderAnotherName) {
  EXPECT_EQ(search({{"ttyACM0", {"ID_MODEL=TALVEX_SAT"}}}, {renamed("ttyACM0", "ttyACM5"), "true"}),
            "0 /dev/ttyACM0\n0 /dev/ttyACM5\n0 /dev/ttyACM5\n");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM5");
}

TEST_F(UsbSearch, MissesADeviceThatHasGone) {
  EXPECT_EQ(search({{"ttyACM0", {"ID_MODEL=TALVEX_SAT"}}},
                   {"cd $UMOCKDEV_DIR/sys && rm -r class/tty/ttyACM0 bus/usb/devices/1-1 "
                    "devices/pci0000:00/0000:00:14.0/usb1/1-1"}),
            "0 /dev/ttyACM0\n-2000 /dev/ttyNONE\n");
}

}  // namespace
