// How the parts whose work grows with a job's size grow: command line, reader, payload and the text
// conversions, at 1 KB, 100 KB and 10 MB.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "addin/text_encoding.h"
#include "app/command_line.h"
#include "jobfile/commands.h"
#include "platform/files.h"

namespace zentpost {
namespace {

void Sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(1 << 10)->Arg(100 << 10)->Arg(10 << 20)->Complexity(benchmark::oN);
}

std::u16string Text(std::size_t units) {
  std::u16string text;
  text.reserve(units);
  while (text.size() < units) {
    text += u"Grüße aus dem Fax ";
  }
  text.resize(units);
  return text;
}

void Finish(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
}

void BenchSplitQuoted(benchmark::State& state) {
  const std::u16string text = Text(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(SplitQuoted(text, u' '));
  }
  Finish(state);
}
BENCHMARK(BenchSplitQuoted)->Apply(Sizes);

void BenchReadFromFile(benchmark::State& state) {
  const char* folder = std::getenv("TMPDIR");
  const std::string narrow =
      std::string(folder == nullptr ? "/tmp" : folder) + "/zentpost-bench-job.json";
  const std::u16string path(narrow.begin(), narrow.end());
  std::string job = R"({"FilePath":"a.pdf","SourceFileName":"a","Cmd":{"Parameters":{"Comment":")";
  job.append(static_cast<std::size_t>(state.range(0)), 'x');
  job += R"("},"Receiver":["0301"]}})";
  {
    platform::File file;
    if (platform::OpenFileAt(path, platform::OpenMode::kRewrite, file) != platform::kSuccess ||
        platform::WriteBytes(file, job.data(), job.size()) != platform::kSuccess) {
      state.SkipWithError("the job file cannot be written");
      return;
    }
  }
  for ([[maybe_unused]] auto step : state) {
    JobParameters params;
    benchmark::DoNotOptimize(CCommands::ReadFromFile(params, path));
  }
  static_cast<void>(platform::RemoveFile(path));
  Finish(state);
}
BENCHMARK(BenchReadFromFile)->Apply(Sizes);

void BenchPayload(benchmark::State& state) {
  JobParameters params;
  params.faxFields.Add(u"K", Text(static_cast<std::size_t>(state.range(0))));
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(CCommands::json(params));
  }
  Finish(state);
}
BENCHMARK(BenchPayload)->Apply(Sizes);

void BenchUtf8(benchmark::State& state) {
  const std::u16string text = Text(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(_utf8(text.c_str()));
  }
  Finish(state);
}
BENCHMARK(BenchUtf8)->Apply(Sizes);

void BenchFromUtf8(benchmark::State& state) {
  const std::string bytes = _utf8(Text(static_cast<std::size_t>(state.range(0))).c_str()).value();
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(FromUtf8(bytes.c_str()));
  }
  Finish(state);
}
BENCHMARK(BenchFromUtf8)->Apply(Sizes);

void BenchWidenThroughAnsi(benchmark::State& state) {
  const std::string bytes(static_cast<std::size_t>(state.range(0)), '\xE4');
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(WidenThroughAnsi(bytes));
  }
  Finish(state);
}
BENCHMARK(BenchWidenThroughAnsi)->Apply(Sizes);

void BenchNarrowThroughAnsi(benchmark::State& state) {
  const std::u16string text = Text(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(NarrowThroughAnsi(text));
  }
  Finish(state);
}
BENCHMARK(BenchNarrowThroughAnsi)->Apply(Sizes);

}  // namespace
}  // namespace zentpost

BENCHMARK_MAIN();
