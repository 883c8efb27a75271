// Other processes that hold leases on the library's files, as a file server does that shares the till's
// folder: an open that does not wait fails at once where a plain one makes the holder give way.
#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <functional>

#include "api/protocol_log.h"
#include "link/link_fixture.h"
#include "support/lease_holder.h"
#include "talvex/talvex.h"

namespace {

using namespace scripted;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;
using Manner = LeaseHolder::Manner;

constexpr int kSession = 123456;
const std::string kReply = "123456|06000|0000|Emitido com sucesso|||";

struct Lease {
  const char* name;
  int type;
};
constexpr Lease kRead = {"read", F_RDLCK};
constexpr Lease kWrite = {"write", F_WRLCK};

void PrintTo(const Lease& lease, std::ostream* out) {
  *out << lease.name;
}

class LeaseTest : public LinkTest {
 protected:
  LeaseTest() : LinkTest(steady_clock_ms) {}
  void SetUp() override {
    std::filesystem::create_directory("results");
    write_settings(1000000);
  }

  void write_settings(time_t changed) {
    write_file("SAT.ini", configuration(device().path(), "[ARVOLEN]\nPathLinux=results\nEnable=1\n"));
    const timespec times[2] = {{changed, 0}, {changed, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "SAT.ini", times, 0), 0);
  }

  template <typename Call>
  auto timed(Call call) {
    const auto start = std::chrono::steady_clock::now();
    auto result = call();
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
  }

  // The device answers one sale.
  std::string sell() {
    device().play({expect_frame(), ack(), send_frame(kReply), expect_ack()});
    DeviceThread thread(device());
    std::string reply = timed([] { return std::string(EnviarDadosVenda(kSession, "code", "<CFe/>")); });
    EXPECT_EQ(thread.finish(), "");
    return reply;
  }

  double seconds() const { return seconds_; }

  // One wait of about a second, however often the file was wanted.
  void expect_one_wait() const { EXPECT_THAT(seconds(), AllOf(Ge(0.99), Lt(1.9))); }
  void expect_no_wait() const { EXPECT_LT(seconds(), 0.9); }

  static std::filesystem::path log_file(const std::string& name) {
    for (const auto& entry : std::filesystem::directory_iterator("Log")) {
      if (entry.path().filename().string().ends_with(name)) return entry.path();
    }
    return {};
  }

  // Between two calls the library keeps this file open, and nobody gets a lease on it.
  static std::filesystem::path protocol_log() {
    close_protocol_log();
    return log_file("_SAT_ProtocolLog.txt");
  }

 private:
  double seconds_ = 0;
};

#define SKIP_WITHOUT_LEASE(holder) \
  if (!(holder).holds()) GTEST_SKIP() << "no leases here"

class Leases : public LeaseTest, public testing::WithParamInterface<Lease> {};
INSTANTIATE_TEST_SUITE_P(, Leases, testing::Values(kRead, kWrite),
                         [](const auto& instance) { return std::string(instance.param.name); });

// ---- Holders that give way --------------------------------------------------------------------------

TEST_P(Leases, OnTheTraceLogCostNoLine) {
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(sell(), kReply);  // the first two calls read the settings
  std::filesystem::resize_file(log_file("_SAT_api.log"), 0);
  EXPECT_EQ(sell(), kReply);
  const std::size_t lines = trace_messages("SAT_api.log").size();
  ASSERT_GT(lines, 10u);

  std::filesystem::resize_file(log_file("_SAT_api.log"), 0);
  LeaseHolder holder(log_file("_SAT_api.log"), GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(trace_messages("SAT_api.log").size(), lines);
  EXPECT_TRUE(holder.was_asked());
}

TEST_P(Leases, OnTheProtocolLogCostNoLine) {
  EXPECT_EQ(sell(), kReply);
  const std::string one_sale = read_file(protocol_log());
  LeaseHolder holder(protocol_log(), GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(read_file(protocol_log()).size(), 2 * one_sale.size());
  EXPECT_TRUE(holder.was_asked());
}

TEST_P(Leases, OnTheSettingsDoNotStopTheFirstReading) {
  LeaseHolder holder("SAT.ini", GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(holder.was_asked(), GetParam().type == F_WRLCK) << "a reader is no matter to other readers";
}

TEST_P(Leases, OnTheSettingsDoNotStopTheReadingOfChanges) {
  EXPECT_EQ(sell(), kReply);
  write_settings(2000000);
  LeaseHolder holder("SAT.ini", GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 2000000);
  EXPECT_STREQ(gl_tSat.settings.strResultPathLinux, "results");
  EXPECT_EQ(holder.was_asked(), GetParam().type == F_WRLCK);
}

TEST_P(Leases, OnAnIniFileDoNotStopTheWriter) {
  write_file("till.ini", "[A]\nb=1\n");
  LeaseHolder holder("till.ini", GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(OLK_SetIniFileValue("till.ini", "A", "b", "2"), 5);
  EXPECT_EQ(read_file("till.ini"), "[A]\nb=2\n");
  EXPECT_TRUE(holder.was_asked());
}

TEST_P(Leases, OnThePortFileDoNotStopItsWriting) {
  write_file("SAT.conf", "/dev/ttyFORMER");
  LeaseHolder holder("SAT.conf", GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(read_file("SAT.conf"), device().path());
  EXPECT_TRUE(holder.was_asked());
}

// A result file is named after the second in which it is written: one file under the names of many of them.
std::filesystem::path result_file() {
  constexpr std::time_t kSecondsAhead = 60;
  const std::filesystem::path file = "results/former";
  write_file(file, "former reply, and a long one at that, so that it has to be cut");
  const std::time_t now = std::time(nullptr);
  for (std::time_t second = now; second < now + kSecondsAhead; ++second) {
    char name[64];
    std::strftime(name, sizeof name, "results/venda-cprx-%d%H%M%S-123456-1.sat", std::localtime(&second));
    std::filesystem::create_hard_link(file, name);
  }
  return file;
}

TEST_P(Leases, OnAResultFileDoNotStopItsWriting) {
  const auto file = result_file();
  LeaseHolder holder(file, GetParam().type, Manner::kGivesWay);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  EXPECT_EQ(read_file(file), kReply);
  EXPECT_TRUE(holder.was_asked());
}

// ---- Holders that do not ----------------------------------------------------------------------------

TEST_P(Leases, ThatAreKeptOnTheTraceLogCostOneWaitForEachCall) {
  EXPECT_EQ(sell(), kReply);
  const std::string before = read_file(log_file("_SAT_api.log"));
  LeaseHolder holder(log_file("_SAT_api.log"), GetParam().type, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  for (int call = 0; call < 2; ++call) {
    EXPECT_EQ(sell(), kReply);
    expect_one_wait();
  }
  EXPECT_TRUE(holder.was_asked());
  EXPECT_EQ(read_file(log_file("_SAT_api.log")), before);
  EXPECT_EQ(sell(), kReply);
  expect_no_wait();
  EXPECT_GT(read_file(log_file("_SAT_api.log")).size(), before.size());
}

TEST_P(Leases, ThatAreKeptOnTheProtocolLogCostOneWait) {
  EXPECT_EQ(sell(), kReply);
  LeaseHolder holder(protocol_log(), GetParam().type, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  expect_one_wait();
}

TEST_F(LeaseTest, WriteLeaseThatIsKeptOnTheSettingsCostsOneWait) {
  LeaseHolder holder("SAT.ini", F_WRLCK, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  const std::string reply = timed([] { return std::string(ConsultarSAT(kSession)); });
  EXPECT_THAT(reply, HasSubstr("SAT Erro[-02000]"));
  expect_one_wait();
  EXPECT_TRUE(holder.was_asked());
}

TEST_F(LeaseTest, ReadLeaseThatIsKeptOnTheSettingsCostsNothing) {
  LeaseHolder holder("SAT.ini", F_RDLCK, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  expect_no_wait();
}

TEST_F(LeaseTest, WriteLeaseThatIsKeptWhileChangesAreReadCostsOneWait) {
  EXPECT_EQ(sell(), kReply);
  write_settings(2000000);
  LeaseHolder holder("SAT.ini", F_WRLCK, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  const std::string reply = timed([] { return std::string(ConsultarSAT(kSession)); });
  EXPECT_THAT(reply, HasSubstr("SAT Erro[-02000]"));
  expect_one_wait();
}

TEST_P(Leases, ThatAreKeptOnAnIniFileCostEachCallOfTheWriterOneWait) {
  write_file("till.ini", "[A]\nb=1\n");
  LeaseHolder holder("till.ini", GetParam().type, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  for (int call = 0; call < 2; ++call) {
    EXPECT_LT(timed([] { return OLK_SetIniFileValue("till.ini", "A", "b", "2"); }), 0);
    expect_one_wait();
  }
  EXPECT_TRUE(holder.was_asked());
  EXPECT_EQ(read_file("till.ini"), "[A]\nb=1\n");
}

TEST_F(LeaseTest, WriteLeaseThatIsKeptOnAnIniFileCostsEachCallOfTheReaderOneWait) {
  write_file("till.ini", "[A]\nb=1\n");
  LeaseHolder holder("till.ini", F_WRLCK, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  char value[128];
  for (int call = 0; call < 2; ++call) {
    EXPECT_EQ(timed([&] { return OLK_GetIniFileValue("till.ini", "A", "b", value); }), -302);
    expect_one_wait();
  }
}

TEST_P(Leases, ThatAreKeptOnThePortFileCostOneWait) {
  write_file("SAT.conf", "/dev/ttyFORMER");
  LeaseHolder holder("SAT.conf", GetParam().type, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  expect_one_wait();
  EXPECT_TRUE(holder.was_asked());
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyFORMER");
}

TEST_P(Leases, ThatAreKeptOnAResultFileCostOneWait) {
  const auto file = result_file();
  LeaseHolder holder(file, GetParam().type, Manner::kKeeps);
  SKIP_WITHOUT_LEASE(holder);
  EXPECT_EQ(sell(), kReply);
  expect_one_wait();
  EXPECT_TRUE(holder.was_asked());
  EXPECT_THAT(read_file(file), HasSubstr("former reply"));
}

}  // namespace
