#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "device/state_file.h"
#include "device_bench.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

namespace emulator {
namespace {

using testing::HasSubstr;

class StoredDevice : public testing::Test {
 protected:
  static Command sale(int session) {
    return parse_command("EnviarDadosVenda|" + padded(session, 6) + "|12345678|" + SaleData().xml());
  }
  static DeviceState ready() {
    DeviceState state;
    make_ready_to_sell(state, "12345678", *parse_moment("2026-03-01"));
    return state;
  }
  static Device device_in(const StateFile& file) {
    const auto state = file.load();
    Device device(state ? *state : ready(), file, 7);
    device.surroundings().clock.stop_at(*parse_moment("2026-03-01T10:00:00"));
    return device;
  }

  ScratchDirectory scratch;
};

TEST_F(StoredDevice, GoesOnWhereItStopped) {
  std::string reply, status, public_key;
  {
    const StateFile file("sat.json");
    Device device = device_in(file);
    reply = device.execute(sale(1), {}).text();
    device.change([](DeviceState& state) { state.block = Block::sefaz; });
    status = to_json_text(device.state());
    public_key = device.signing_key().public_pem();
  }
  const StateFile file("sat.json");
  Device device = device_in(file);
  EXPECT_EQ(to_json_text(device.state()), status);
  EXPECT_EQ(device.signing_key().public_pem(), public_key);
  EXPECT_EQ(device.execute(parse_command("ConsultarNumeroSessao|000002|12345678|000001"), {}).text(), reply);
  EXPECT_EQ(device.execute(parse_command("ConsultarUltimaSessaoFiscal|000003|12345678"), {}).text(), reply);
  EXPECT_EQ(device.execute(sale(4), {}).code, 6007);
}

TEST_F(StoredDevice, TheFileIsWholeBeforeTheReplyIsKnown) {
  const StateFile file("sat.json");
  Device device = device_in(file);
  for (int session = 1; session <= 3; ++session) {
    const auto reply = device.execute(sale(session), {});
    const DeviceState stored = from_json_text(read_file("sat.json"));
    ASSERT_EQ(stored.receipts.size(), static_cast<std::size_t>(session));
    EXPECT_EQ((*stored.receipts.back())->key, reply.fields[8]);
    EXPECT_EQ((*stored.sessions.back())->reply, reply.text());
  }
}

TEST_F(StoredDevice, ACallThatCannotBeStoredHasNotHappened) {
  std::filesystem::create_directory("disk");
  const StateFile file("disk/sat.json");
  Device device = device_in(file);
  device.execute(sale(1), {});
  const std::string before = read_file("disk/sat.json");
  // A directory in the place of the temporary file: it can be neither opened nor replaced.
  std::filesystem::create_directory("disk/sat.json.new");
  const Reply reply = device.execute(sale(2), {});
  EXPECT_EQ(reply.text(), "000002|06099|0000|Erro desconhecido||");
  EXPECT_EQ(device.state().receipts.size(), 1U);
  EXPECT_EQ(read_file("disk/sat.json"), before);
  std::filesystem::remove("disk/sat.json.new");
  EXPECT_EQ(device.execute(sale(2), {}).code, 6000);
  EXPECT_EQ(device.state().next_number, 3);
}

TEST_F(StoredDevice, OnlyItsOwnerReadsTheFile) {
  const StateFile file("sat.json");
  device_in(file);
  struct stat status {};
  ASSERT_EQ(stat("sat.json", &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(StoredDevice, ALeftOverTemporaryFileIsIgnored) {
  {
    const StateFile file("sat.json");
    device_in(file).execute(sale(1), {});
  }
  write_file("sat.json.new", "{ half a st");
  const StateFile file("sat.json");
  EXPECT_EQ(device_in(file).execute(sale(2), {}).code, 6000);
}

TEST_F(StoredDevice, OneEmulatorAtATime) {
  const StateFile file("sat.json");
  try {
    const StateFile second("./sat.json");
    FAIL() << "two emulators on one file";
  } catch (const StateError& error) {
    EXPECT_THAT(error.what(), HasSubstr("another emulator uses the state file"));
  }
}

TEST_F(StoredDevice, AForeignFileIsNotTouched) {
  for (const char* text :
       {"", "no json", "{}", "[]", "{\"format\": 99}", "{\"format\": 1, \"device\": 3}",
        "{\"format\": 1, \"device\": {}, \"receipts\": {}, \"sessions\": [{\"session\": \"x\"}]}"}) {
    write_file("sat.json", text);
    const StateFile file("sat.json");
    EXPECT_THROW(file.load(), StateError) << text;
    EXPECT_EQ(read_file("sat.json"), text);
  }
}

TEST_F(StoredDevice, TextsThatAreNoUtf8CanBeStored) {
  const StateFile file("sat.json");
  Device device = device_in(file);
  device.change([](DeviceState& state) {
    state.signature = "\xff\xfe";
    keep(state.sessions, SessionReply{5, "\xc3"}, kMostSessions);
  });
  EXPECT_NO_THROW(from_json_text(read_file("sat.json")));
}

TEST(Memory, OldRecordsMakeRoom) {
  DeviceState state;
  for (int i = 0; i < 5; ++i) keep(state.sessions, SessionReply{i, "r"}, 3);
  ASSERT_EQ(state.sessions.size(), 3U);
  EXPECT_EQ((*state.sessions.front())->session, 2);
  EXPECT_EQ(newest(state.sessions, [](const SessionReply& r) { return r.session == 1; }), nullptr);
}

TEST(Memory, TheNewestReplyOfASessionCounts) {
  DeviceState state;
  keep(state.sessions, SessionReply{1, "old"}, 3);
  keep(state.sessions, SessionReply{1, "new"}, 3);
  EXPECT_EQ(newest(state.sessions, [](const SessionReply& r) { return r.session == 1; })->reply, "new");
}

}  // namespace
}  // namespace emulator
