// What the parts of a call cost by themselves. Runs in an empty folder, where it leaves its files.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "api/api_trace.h"
#include "api/configuration.h"
#include "api/context.h"
#include "api/default_configuration.h"
#include "api/packet_buffer.h"
#include "api/protocol_log.h"
#include "olk_sat_utils/dissectors.h"
#include "talvex/talvex.h"

namespace {

std::string command_frame(std::size_t size) {
  std::string frame =
      "\x02"
      "EnviarDadosVenda|000042|12345678|";
  for (int field = 0; frame.size() < size; ++field) frame += field % 40 == 39 ? '|' : 'v';
  return frame + "\x55\x03";
}

void set_log_mode(bool on) {
  bErrorLogsEnabled = on ? 0 : 1;
  bDebugLogsEnabled = on ? 1 : 0;
}

void count_bytes(benchmark::State& state, std::size_t per_iteration) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(per_iteration));
}

void checksum(benchmark::State& state) {
  const std::string frame = command_frame(static_cast<std::size_t>(state.range(0)));
  const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
  for (auto _ : state) benchmark::DoNotOptimize(SAT_API_CalcCkeckSum(bytes, static_cast<int>(frame.size())));
  count_bytes(state, frame.size());
}
BENCHMARK(checksum)->Arg(1'000)->Arg(1'500'000);

void dissector_not_logged(benchmark::State& state) {
  const std::string frame = command_frame(static_cast<std::size_t>(state.range(0)));
  set_log_mode(false);
  for (auto _ : state) trace_command_frame(frame.c_str(), static_cast<int>(frame.size()));
}
BENCHMARK(dissector_not_logged)->Arg(1'000)->Arg(1'500'000);

void dissector_exported(benchmark::State& state) {
  const std::string frame = command_frame(static_cast<std::size_t>(state.range(0)));
  set_log_mode(false);
  for (auto _ : state) {
    benchmark::DoNotOptimize(SAT_API_CmdPktParcer(frame.c_str(), static_cast<int>(frame.size())));
  }
  count_bytes(state, frame.size());
}
BENCHMARK(dissector_exported)->Arg(1'000)->Arg(1'500'000);

void ini_lookup(benchmark::State& state) {
  CreateFile_TalvexIni();
  char value[128];
  for (auto _ : state) benchmark::DoNotOptimize(OLK_GetIniFileValue("SAT.ini", "LOG", "LogMode", value));
}
BENCHMARK(ini_lookup);

void configuration_pass(benchmark::State& state) {
  CreateFile_TalvexIni();
  Settings settings = {};
  for (auto _ : state) benchmark::DoNotOptimize(UpdateTalvexConfiguration(settings, false));
}
BENCHMARK(configuration_pass);

void base64_encode(benchmark::State& state) {
  const std::vector<unsigned char> bytes(9'000, 'x');
  std::vector<char> text(2 * bytes.size());
  for (auto _ : state) {
    uint64_t length = text.size();
    benchmark::DoNotOptimize(OLK_Base64Encoder(bytes.data(), bytes.size(), text.data(), &length));
  }
  count_bytes(state, bytes.size());
}
BENCHMARK(base64_encode);

void base64_decode(benchmark::State& state) {
  const std::string text(12'000, 'Q');
  std::vector<unsigned char> bytes(text.size());
  set_log_mode(false);
  bErrorLogsEnabled = 0;  // the decoder reports the release of its table as an error
  for (auto _ : state) {
    uint64_t length = bytes.size();
    benchmark::DoNotOptimize(OLK_Base64Decoder(text.data(), text.size(), bytes.data(), &length));
  }
  count_bytes(state, text.size());
}
BENCHMARK(base64_decode);

void trace_line_dropped(benchmark::State& state) {
  set_log_mode(false);
  for (auto _ : state) API_TRACE(kInfo, " rc[%06d]OK\n", 0);
}
BENCHMARK(trace_line_dropped);

void trace_line_written(benchmark::State& state) {
  set_log_mode(true);
  for (auto _ : state) API_TRACE(kInfo, " rc[%06d]OK\n", 0);
  set_log_mode(false);
}
BENCHMARK(trace_line_written);

void protocol_line(benchmark::State& state) {
  const std::string frame = command_frame(static_cast<std::size_t>(state.range(0)));
  set_log_mode(false);
  tLog.ucModeMask = 1;
  CreateSAT_ProtLogFile();
  for (auto _ : state) LogSATProtocolMsg(frame.c_str(), false);
  count_bytes(state, frame.size());
  LogSATProtocolSzCtl();
  std::remove(gl_tSat.strSatProtLogFileName);
}
BENCHMARK(protocol_line)->Arg(1'000)->Arg(1'500'000)->Iterations(200);

void clear_packet_buffer(benchmark::State& state) {
  for (auto _ : state) {
    PacketBuffer packet = packet_buffer();
    clear(packet, packet.capacity);
  }
}
BENCHMARK(clear_packet_buffer);

}  // namespace

BENCHMARK_MAIN();
