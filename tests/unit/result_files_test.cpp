// The file that a sale or a cancellation leaves for the desktop application.
#include "api/result_files.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ostream>

#include "api/configuration.h"
#include "api/context.h"
#include "olk_utils/bounded_text.h"
#include "support/api_trace.h"
#include "support/file_status.h"
#include "support/full_disk.h"
#include "support/usb_bus.h"
#include "support/virtual_clock.h"
#include "support/write_calls.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kReply[] = "123456|06000|0000|Emitido com sucesso|||";
constexpr char kSaleFile[] = "venda-cprx-27030507-123456-1.sat";

class ResultFiles : public ApiTraceTest {
 protected:
  ResultFiles() {
    gl_tSat = {};
    settings_.lResultFilesOn = true;
    copy_text(settings_.strResultPathLinux, "coupons");
    setenv("TZ", "UTC0", 1);
    tzset();
    virtual_clock::set_local_time(2020, 7, 27, 3, 5, 7, 999);
    log_up_to(kInfo);
  }

  // The result of one call with this reply.
  void write_result(const std::string& reply, int session = 123456,
                    SatFunctionIndex function = kEnviarDadosVenda) {
    PacketBuffer packet = packet_buffer();
    replace_text(packet, "%s", reply.c_str());
    write_operation_result({.function = kSatFunctions[function],
                            .session = session,
                            .reply_timeout_s = 0,
                            .settings = settings_,
                            .packet = packet});
  }
  void write_sale(int session = 123456) { write_result(kReply, session); }
  static std::string line(const std::string& text) { return api_line("INF", "write_operation_result", text); }
  static Lines first_lines(const std::string& folder, const std::string& name = kSaleFile) {
    return {line("Win: strTmpFolderPath[00001:.]\n"),
            line(printed("Win: strFinalFile[%05d:", static_cast<int>(name.size())) + name + "]\n"),
            line(" rc[000001]Win:OK \n\t<Operation><DHMS-<Session>.sat\n\tstrTarget[" + folder + "]\n")};
  }
  static std::string saved(const std::string& path) {
    return line("Win: rc[000001]OK:\n\tSaved File[" + path +
                "]\n\t          [DD/MM/YYYY HH:MM:SS]\n\t strTmpTimeStamp[27/07/2020 03:05:07]\n");
  }
  static std::string not_saved(const std::string& path) {
    return line("Win: rc[000001]ER:Timestamp Not Saved on File[" + path +
                "]\n\t          [DD/MM/YYYY HH:MM:SS]\n\t strTmpTimeStamp[27/07/2020 03:05:07]\n");
  }
  static Lines followed_by(Lines lines, const std::string& last) {
    lines.push_back(last);
    return lines;
  }
  static Lines names_in(const std::filesystem::path& directory) {
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  Settings settings_ = {};
};

TEST_F(ResultFiles, SwitchedOffLeaveNoFileAndNoLine) {
  settings_.lResultFilesOn = false;
  std::filesystem::create_directory("coupons");
  write_sale();
  EXPECT_THAT(names_in("coupons"), IsEmpty());
  EXPECT_THAT(take_all_lines(), IsEmpty());
}

TEST_F(ResultFiles, HoldTheReplyUnderLocalDayAndTimeWithoutHourShift) {
  std::filesystem::create_directory("coupons");
  write_sale();
  EXPECT_EQ(read_file(std::string("coupons/") + kSaleFile), kReply);
  EXPECT_EQ(take_lines(), followed_by(first_lines("coupons"), saved(std::string("coupons/") + kSaleFile)));
}

TEST_F(ResultFiles, TakeTheTimeZoneAsItIsNow) {
  std::filesystem::create_directory("coupons");
  setenv("TZ", "BRT3", 1);
  write_sale();
  EXPECT_THAT(names_in("coupons"), ElementsAre("venda-cprx-27000507-123456-1.sat"));
}

TEST_F(ResultFiles, OfTheExampleSale) {
  std::filesystem::create_directory("coupons");
  virtual_clock::set_local_time(2020, 7, 27, 10, 41, 14, 0);
  write_sale();
  EXPECT_THAT(names_in("coupons"), ElementsAre("venda-cprx-27104114-123456-1.sat"));
}

struct SessionName {
  int session;
  const char* name;
};
void PrintTo(const SessionName& tested, std::ostream* out) {
  *out << static_cast<int>(tested.session);
}
class SessionInName : public ResultFiles, public testing::WithParamInterface<SessionName> {};

TEST_P(SessionInName, HasAtLeastTwoDigits) {
  std::filesystem::create_directory("coupons");
  write_sale(GetParam().session);
  EXPECT_THAT(names_in("coupons"), ElementsAre(GetParam().name));
}
INSTANTIATE_TEST_SUITE_P(Sessions, SessionInName,
                         testing::Values(SessionName{0, "venda-cprx-27030507-00-1.sat"},
                                         SessionName{5, "venda-cprx-27030507-05-1.sat"},
                                         SessionName{42, "venda-cprx-27030507-42-1.sat"},
                                         SessionName{123, "venda-cprx-27030507-123-1.sat"},
                                         SessionName{999999, "venda-cprx-27030507-999999-1.sat"},
                                         SessionName{-5, "venda-cprx-27030507--5-1.sat"}));

TEST_F(ResultFiles, HoldTheReplyWithoutAnythingBehindIt) {
  std::filesystem::create_directory("coupons");
  write_result("ab\nef", 1, kCancelarUltimaVenda);
  EXPECT_EQ(read_file("coupons/canc-cprx-27030507-01-1.sat"), "ab\nef");
  write_result("", 2, kCancelarUltimaVenda);
  EXPECT_EQ(read_file("coupons/canc-cprx-27030507-02-1.sat"), "");
}

TEST_F(ResultFiles, AreWholeWhenWritesAreShortOrInterrupted) {
  std::filesystem::create_directory("coupons");
  const write_calls::Reluctant writes;
  write_sale();
  EXPECT_EQ(read_file(std::string("coupons/") + kSaleFile), kReply);
}

TEST_F(ResultFiles, AreOpenToOthersAsFarAsTheUmaskAllows) {
  std::filesystem::create_directory("coupons");
  const std::string file = std::string("coupons/") + kSaleFile;
  for (const mode_t mask : {0u, 022u}) {
    const Umask umask(mask);
    std::filesystem::remove(file);
    write_sale();
    EXPECT_EQ(mode_of(file), 0666u & ~mask);
  }
}

TEST_F(ResultFiles, LeaveNoDescriptorOpen) {
  std::filesystem::create_directory("coupons");
  const long descriptors = open_descriptors();
  write_sale();
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(ResultFiles, OfTheSameSecondAndSessionAreOverwritten) {
  std::filesystem::create_directory("coupons");
  write_sale();
  write_result("short");
  EXPECT_EQ(read_file(std::string("coupons/") + kSaleFile), "short");
  EXPECT_THAT(names_in("coupons"), ElementsAre(kSaleFile));
}

TEST_F(ResultFiles, ComeBackAfterAMonth) {
  std::filesystem::create_directory("coupons");
  write_sale();
  virtual_clock::set_local_time(2020, 8, 27, 3, 5, 7, 0);
  write_result("august");
  EXPECT_EQ(read_file(std::string("coupons/") + kSaleFile), "august");
}

TEST_F(ResultFiles, OfACancellationHoldTheReplyOnly) {
  std::filesystem::create_directory("coupons");
  write_result(kReply, 123456, kCancelarUltimaVenda);
  EXPECT_EQ(read_file("coupons/canc-cprx-27030507-123456-1.sat"), kReply);
}

// ---- The folder -------------------------------------------------------------------------------------

TEST_F(ResultFiles, WithoutTheirFolderAreNotWrittenAndItIsNotMade) {
  write_sale();
  EXPECT_FALSE(std::filesystem::exists("coupons"));
  EXPECT_EQ(take_lines(), first_lines("coupons"));
}

TEST_F(ResultFiles, WithAFileInThePlaceOfTheFolderAreNotWritten) {
  write_file("coupons", "a file");
  write_sale();
  EXPECT_EQ(read_file("coupons"), "a file");
  EXPECT_EQ(take_lines(), first_lines("coupons"));
}

TEST_F(ResultFiles, GoToTheBuiltInFolderWhenTheFieldItselfIsEmpty) {
  settings_.strResultPathLinux[0] = '\0';
  std::filesystem::create_directories("Arvolen/Cupons/New");
  write_sale();
  EXPECT_THAT(names_in("Arvolen/Cupons/New"), ElementsAre(kSaleFile));
  EXPECT_EQ(take_lines(), followed_by(first_lines("./Arvolen/Cupons/New"),
                                      saved(std::string("./Arvolen/Cupons/New/") + kSaleFile)));
}

TEST_F(ResultFiles, WithTheBuiltInFolderConfiguredGoThereToo) {
  copy_text(settings_.strResultPathLinux, "./Arvolen/Cupons/New");
  std::filesystem::create_directories("Arvolen/Cupons/New");
  write_sale();
  EXPECT_THAT(names_in("Arvolen/Cupons/New"), ElementsAre(kSaleFile));
}

// An empty setting gets its default text, so the built-in folder is not used.
TEST_F(ResultFiles, OfTheDefaultAndOfAnEmptyPathGoToTheDefaultFolder) {
  std::filesystem::create_directories("Arvolen/Cupons/New");
  for (const char* file : {"[ARVOLEN]\nEnable=1\n", "[ARVOLEN]\nPathLinux=\nEnable=1\n",
                           "[ARVOLEN]\nPathLinux=/etc/Arvolen/Cupons/New\nEnable=1\n"}) {
    if (std::filesystem::exists("/etc/Arvolen/Cupons/New"))
      GTEST_SKIP() << "this machine watches that folder";
    write_file("SAT.ini", file);
    UpdateTalvexConfiguration(settings_, false);
    take_lines();
    write_sale();
    EXPECT_EQ(take_lines(), first_lines("/etc/Arvolen/Cupons/New"));
  }
  EXPECT_THAT(names_in("Arvolen/Cupons/New"), IsEmpty());
}

TEST_F(ResultFiles, GoToTheLongestFolder) {
  std::string folder = "c";
  while (folder.size() < 127) folder += folder.size() % 2 != 0 ? "/" : "d";
  std::filesystem::create_directories(folder);
  write_file("SAT.ini", "[ARVOLEN]\nPathLinux=" + folder + "\nEnable=1\n");
  UpdateTalvexConfiguration(settings_, false);
  write_sale();
  EXPECT_EQ(read_file(folder + "/" + kSaleFile), kReply);
}

TEST_F(ResultFiles, ThatCannotBeOpenedAreReported) {
  std::filesystem::create_directories(std::string("coupons/") + kSaleFile);
  write_sale();
  EXPECT_EQ(take_lines(),
            followed_by(first_lines("coupons"), not_saved(std::string("coupons/") + kSaleFile)));
}

TEST_F(ResultFiles, OnAFullDiskAreReportedAsSavedAllTheSame) {
  const std::string file = std::string("coupons/") + kSaleFile;
  std::filesystem::create_directory("coupons");
  constexpr std::size_t kRoom = 50000;  // enough for the trace
  const std::string reply(2 * kRoom, 'r');
  {
    const FullDisk disk(kRoom);
    write_result(reply);
  }
  EXPECT_EQ(take_lines(), followed_by(first_lines("coupons"), saved(file)));
  EXPECT_EQ(read_file(file).size(), kRoom);
}

TEST_F(ResultFiles, BehindALinkAreNotWritten) {
  const std::string file = std::string("coupons/") + kSaleFile;
  std::filesystem::create_directory("coupons");
  write_file("precious", "kept");
  ASSERT_EQ(symlink("../precious", file.c_str()), 0);
  write_sale();
  EXPECT_EQ(take_lines(), followed_by(first_lines("coupons"), not_saved(file)));
  EXPECT_EQ(read_file("precious"), "kept");
}

TEST_F(ResultFiles, AreTracedAtInfoLevelOnly) {
  log_up_to(kWarning);
  std::filesystem::create_directory("coupons");
  write_sale();
  EXPECT_THAT(take_lines(), IsEmpty());
}

// ---- Through the SAT functions ----------------------------------------------------------------------

constexpr char kNotFound[] =
    "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]";

class ResultFilesOfCalls : public ResultFiles {
 protected:
  ResultFilesOfCalls() {
    std::filesystem::create_directory("coupons");
    write_file(
        "SAT.ini",
        "[SERIAL_PORT_CONFIG]\nFixarPorta=\n[ARVOLEN]\nPathLinux=coupons\nEnable=1\n[LOG]\nLogFilePath=Log\n"
        "LogMode=3\n");
  }
  CannedSearch no_device_;
};

TEST_F(ResultFilesOfCalls, HoldTheErrorTextOfAFailedSale) {
  const char* reply = EnviarDadosVenda(9123456, "12345678", "<CFe/>");
  EXPECT_STREQ(reply, kNotFound);
  EXPECT_THAT(names_in("coupons"), ElementsAre(kSaleFile));
  EXPECT_EQ(read_file(std::string("coupons/") + kSaleFile), kNotFound);
}

TEST_F(ResultFilesOfCalls, HoldTheErrorTextOfAFailedCancellationWithoutItsData) {
  const char* reply = CancelarUltimaVenda(42, "12345678", "CFe35200", "<CFeCanc/>");
  EXPECT_STREQ(reply, kNotFound);
  EXPECT_THAT(names_in("coupons"), ElementsAre("canc-cprx-27030507-42-1.sat"));
  EXPECT_EQ(read_file("coupons/canc-cprx-27030507-42-1.sat"), kNotFound);
}

TEST_F(ResultFilesOfCalls, ThatFailDoNotChangeTheReply) {
  std::filesystem::create_directories(std::string("coupons/") + kSaleFile);
  EXPECT_STREQ(EnviarDadosVenda(123456, "12345678", "<CFe/>"), kNotFound);
}

TEST_F(ResultFilesOfCalls, AreOnlyWrittenForSalesAndCancellations) {
  ConsultarSAT(1);
  TesteFimAFim(2, "12345678", "<CFe/>");
  EXPECT_THAT(names_in("coupons"), IsEmpty());
}

}  // namespace
