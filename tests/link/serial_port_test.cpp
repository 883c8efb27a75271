#include "api/serial_port.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "link/virtual_link_fixture.h"
#include "support/other_process.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr tcflag_t kWholeSpeedField = 0010017;

class SerialPortTest : public VirtualLinkTest {
 protected:
  SerialPortTest() { log_everything(); }

  termios settings() {
    termios attributes{};
    EXPECT_EQ(tcgetattr(device().port(), &attributes), 0);
    return attributes;
  }
  void change_settings(const termios& attributes) {
    ASSERT_EQ(tcsetattr(device().port(), TCSANOW, &attributes), 0);
  }
  void device_sends(const std::string& bytes) {
    ASSERT_EQ(write(device().master(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  // Opens a port in a session without a terminal, as a daemon's is. 0 when that session has a terminal then,
  // else the error number of looking for one.
  template <typename Open>
  static int terminal_error_after(Open open_port) {
    const pid_t daemon = fork();
    if (daemon == 0) {
      setsid();
      open_port();
      _exit(open("/dev/tty", O_RDWR | O_CLOEXEC) == -1 ? errno : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(daemon, &status, 0), daemon);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

// ---- Open -------------------------------------------------------------------------------------------

TEST_F(SerialPortTest, OpensTheDeviceForReadingAndWritingWithoutBlocking) {
  EXPECT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  ASSERT_GT(port().descriptor, 0);
  const int flags = fcntl(port().descriptor, F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  EXPECT_NE(flags & O_NONBLOCK, 0);
  EXPECT_THAT(traced("lSerialOpenW"), IsEmpty());
}

TEST_F(SerialPortTest, OpenedPortStaysWithinTheProcess) {
  ASSERT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  EXPECT_NE(fcntl(port().descriptor, F_GETFD) & FD_CLOEXEC, 0) << "the device search runs a shell";
}

// Its hang-up would end the daemon, and its bytes would be signals.
TEST_F(SerialPortTest, OpenedPortDoesNotBecomeTheControllingTerminalOfADaemon) {
  const char* path = device().path().c_str();
  EXPECT_EQ(terminal_error_after([&] { lSerialOpenW(port(), path); }), ENXIO);
  EXPECT_EQ(terminal_error_after([path] { open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC); }), 0)
      << "opened carelessly it does";
}

TEST_F(SerialPortTest, StandardStreamsThatTheHostClosedDoNotBecomeThePort) {
  close(STDIN_FILENO);
  open_port();
  EXPECT_GT(port().descriptor, STDERR_FILENO);
}

TEST_F(SerialPortTest, OpeningAMissingPathFailsAndLeavesTheHandleClosed) {
  EXPECT_EQ(lSerialOpenW(port(), "/dev/ttyTALVEX0"), -2000);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_THAT(traced("lSerialOpenW"),
              ElementsAre("ERR Lnx: rc[-02000]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t "
                          "pLnxSerialPortName[/dev/ttyTALVEX0]=hComm[FFFFFFFFh]Open Fail\n"));
}

TEST_F(SerialPortTest, OpeningNoPathAtAllFails) {
  EXPECT_EQ(lSerialOpenW(port(), nullptr), -2000);
  EXPECT_THAT(traced("lSerialOpenW"), ElementsAre("ERR Lnx: rc[-02000]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t "
                                                  "pLnxSerialPortName[NULL]=hComm[FFFFFFFFh]\n"));
}

TEST_F(SerialPortTest, PathLongerThanTheNoteOfItIsOpenedWhole) {
  const std::string long_way = "/dev" + times(100, "/.") + device().path().substr(4);
  ASSERT_GT(long_way.size(), 132u);
  EXPECT_EQ(lSerialOpenW(port(), long_way.c_str()), 0);
  EXPECT_GT(port().descriptor, 0);
}

// ---- Lock -------------------------------------------------------------------------------------------

TEST_F(SerialPortTest, LockedPortIsRefusedToAnotherProcess) {
  open_port();
  EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  EXPECT_EQ(lSerialLock(port()).rc, 0);
  EXPECT_FALSE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  EXPECT_EQ(lSerialUnlock(port()), 0);
  EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  EXPECT_THAT(traced("lSerialLock"), IsEmpty());
  EXPECT_THAT(traced("lSerialUnlock"), IsEmpty());
}

TEST_F(SerialPortTest, LockHeldByAnotherProcessFailsWithEagain) {
  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  open_port();
  const auto [rc, error] = lSerialLock(port());
  EXPECT_EQ(rc, -2010);
  EXPECT_EQ(error, EAGAIN);
  EXPECT_THAT(traced("lSerialLock"),
              ElementsAre("ERR Lnx rc[-02010]ER: flock fail: hComm[" + handle() + "]\n"));
}

TEST_F(SerialPortTest, LockOfAClosedHandleFailsWithItsOwnErrno) {
  port().descriptor = -1;
  const auto [rc, error] = lSerialLock(port());
  EXPECT_EQ(rc, -2010);
  EXPECT_EQ(error, EBADF);
  EXPECT_THAT(traced("lSerialLock"), ElementsAre("ERR Lnx rc[-02010]ER: flock fail: hComm[FFFFFFFFh]\n"));
}

TEST_F(SerialPortTest, UnlockOfAClosedHandleFails) {
  port().descriptor = -1;
  EXPECT_EQ(lSerialUnlock(port()), -2011);
  EXPECT_THAT(traced("lSerialUnlock"), ElementsAre("ERR Lnx rc[-02011]ER: Unlock fail: hComm[FFFFFFFFh]\n"));
}

// ---- Settings ---------------------------------------------------------------------------------------

TEST_F(SerialPortTest, SettingsPutThePortIntoRawModeWithTheWholeSpeedField) {
  open_port();
  const termios set = settings();
  EXPECT_EQ(set.c_iflag, static_cast<tcflag_t>(IGNPAR));
  EXPECT_EQ(set.c_oflag, 0u);
  EXPECT_EQ(set.c_lflag, 0u);
  EXPECT_EQ(set.c_cflag & ~kWholeSpeedField, static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
  EXPECT_EQ(set.c_cflag & kWholeSpeedField, kWholeSpeedField) << "115200 is set on a copy only";
  EXPECT_EQ(set.c_cc[VMIN], 1);
  EXPECT_EQ(set.c_cc[VTIME], 0);
  EXPECT_THAT(traced("lSerialSettingsL"), IsEmpty());
}

TEST_F(SerialPortTest, SettingsOverwriteTheFlagsWholeAndKeepOtherControlCharacters) {
  termios former = settings();
  former.c_iflag |= IXON | IXOFF | ICRNL | INLCR | ISTRIP;
  former.c_oflag |= OPOST | ONLCR;
  former.c_cflag |= CSTOPB | HUPCL | CRTSCTS;
  former.c_lflag |= ECHO | ICANON | ISIG;
  former.c_cc[VINTR] = 0x11;
  former.c_cc[VEOF] = 0x12;
  former.c_cc[VSTART] = 0x13;
  change_settings(former);

  open_port();
  const termios set = settings();
  EXPECT_EQ(set.c_iflag, static_cast<tcflag_t>(IGNPAR));
  EXPECT_EQ(set.c_oflag, 0u);
  EXPECT_EQ(set.c_lflag, 0u);
  EXPECT_EQ(set.c_cflag & ~kWholeSpeedField, static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
  for (int index = 0; index < NCCS; ++index) {
    if (index == VMIN || index == VTIME) continue;
    EXPECT_EQ(set.c_cc[index], former.c_cc[index]) << "character " << index;
  }
}

TEST_F(SerialPortTest, SettingsMakeOneByteTheLeastThatAReadIsGivenAndSetNoTime) {
  termios former = settings();
  former.c_cc[VMIN] = 0;
  former.c_cc[VTIME] = 5;
  change_settings(former);
  open_port();
  EXPECT_EQ(settings().c_cc[VMIN], 1);
  EXPECT_EQ(settings().c_cc[VTIME], 0);
}

TEST_F(SerialPortTest, SettingsDiscardWhatWasWaiting) {
  open_port();
  device_sends("the end of a former reply, longer than one small read\x03");
  EXPECT_EQ(lSerialSettingsL(port()), 0);
  char byte;
  EXPECT_EQ(read(port().descriptor, &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SerialPortTest, FlushOfAnEmptyPortIsOver) {
  open_port();
  EXPECT_EQ(lSerialFlushRx(port()), 0);
}

TEST_F(SerialPortTest, FlushDiscardsMoreThanOneRead) {
  open_port();
  device_sends(times(100, "0123456789") + "z");
  EXPECT_EQ(lSerialFlushRx(port()), 0);
  char byte;
  EXPECT_EQ(read(port().descriptor, &byte, 1), -1);
}

TEST_F(SerialPortTest, FlushOfAPortThatNeverRunsDryEnds) {
  open_port();
  device().play({scripted::flood("garbage")});
  virtual_clock::set_tick_ms(100);
  EXPECT_EQ(lSerialFlushRx(port()), 0);
  EXPECT_GT(virtual_clock::monotonic_ms(), 60000);
}

TEST_F(SerialPortTest, FlushOfAHungUpPortEnds) {
  open_port();
  device().play({scripted::hang_up()});
  device().take_turn();
  EXPECT_EQ(lSerialFlushRx(port()), 0);
}

TEST_F(SerialPortTest, SettingsOfAPortThatIsNoTerminalFail) {
  ASSERT_EQ(lSerialOpenW(port(), "/dev/null"), 0);
  EXPECT_EQ(lSerialSettingsL(port()), -2002);
  EXPECT_THAT(traced("lSerialSettingsL"),
              ElementsAre("ERR Lnx rc[-02002]ER hComm[" + handle() +
                          "] ER:errno[:25:Inappropriate ioctl for device]Fail to tcgetattr\n"));
}

// ---- Close ------------------------------------------------------------------------------------------

TEST_F(SerialPortTest, CloseReleasesLockAndDescriptor) {
  open_port();
  ASSERT_EQ(lSerialLock(port()).rc, 0);
  const int descriptor = port().descriptor;
  EXPECT_EQ(lSerialCloseL(port()), 0);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  EXPECT_THAT(traced("lSerialCloseL"), IsEmpty());
}

TEST_F(SerialPortTest, ClosingTwiceSaysAlreadyClosedAndSucceeds) {
  open_port();
  ASSERT_EQ(lSerialCloseL(port()), 0);
  EXPECT_EQ(lSerialCloseL(port()), 0);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_THAT(traced("lSerialUnlock"), ElementsAre("ERR Lnx rc[-02011]ER: Unlock fail: hComm[FFFFFFFFh]\n"));
  EXPECT_THAT(traced("lSerialCloseL"),
              ElementsAre("ERR Lnx rc[-02011]ER: hComm[FFFFFFFFh]\n",
                          "WRN Lnx rc[000000]WR: hComm[FFFFFFFFh]Already Closed!\n"));
}

TEST_F(SerialPortTest, FailedCloseIsReportedAndTheHandleClosedAllTheSame) {
  port().descriptor = 987;
  EXPECT_EQ(lSerialCloseL(port()), -2001);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_THAT(traced("lSerialCloseL"), ElementsAre("ERR Lnx rc[-02011]ER: hComm[000003DBh]\n",
                                                   "ERR Lnx rc[-02001]ER: hComm[000003DBh]\n"));
}

TEST_F(SerialPortTest, DescriptorZeroIsAPortLikeAnyOther) {
  open_port();
  const int opened = port().descriptor;
  port().descriptor = dup2(opened, STDIN_FILENO);
  close(opened);
  EXPECT_EQ(lSerialLock(port()).rc, 0);
  EXPECT_EQ(lSerialCloseL(port()), 0);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
}

}  // namespace
