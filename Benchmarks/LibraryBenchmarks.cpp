// The parts of the library whose speed matters by themselves: what every hook call parses and
// hashes, a user's settings, and the end of a long transcript.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/CodexTranscript.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/OrderedJSON.h"

namespace {

namespace JSON = CorvaneControl::JSON;
using CorvaneControl::AgentPermission;
using CorvaneControl::OrderedJSON;
namespace CodexTranscript = CorvaneControl::CodexTranscript;

/// A tool's input of about `size` bytes: code with quotes, slashes and line breaks.
std::string toolInput(std::size_t size) {
  std::string content;
  while (content.size() < size) content += "    say(\"hello/there\", count);\n";
  std::string text = R"({"file_path":"/home/user/project/a.c","content":)";
  JSON::write(JSON::Value::ofString(content), JSON::Slashes::plain, text);
  return text + "}";
}

void count(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

void parseJSON(benchmark::State& state) {
  const std::string source = toolInput(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::string text = source;
    benchmark::DoNotOptimize(JSON::Document::parse(text));
  }
  count(state, source.size());
}
BENCHMARK(parseJSON)->Arg(4'000)->Arg(50'000)->Arg(16'000'000);

void fingerprint(benchmark::State& state) {
  std::string text = toolInput(static_cast<std::size_t>(state.range(0)));
  const std::size_t size = text.size();
  const auto document = JSON::Document::parse(text);
  for (auto _ : state) {
    benchmark::DoNotOptimize(AgentPermission::fingerprint("Write", &document->root()));
  }
  count(state, size);
}
BENCHMARK(fingerprint)->Arg(4'000)->Arg(50'000)->Arg(16'000'000);

void card(benchmark::State& state) {
  std::string text = toolInput(static_cast<std::size_t>(state.range(0)));
  const auto document = JSON::Document::parse(text);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        AgentPermission::parse("Write", document->root(), {.cwd = "/home/user/project"}));
  }
}
BENCHMARK(card)->Arg(4'000)->Arg(50'000)->Arg(16'000'000);

void orderedJSON(benchmark::State& state) {
  std::string text = "{";
  for (int index = 0; index < state.range(0); ++index) {
    text +=
        (index ? ",\n  \"key" : "\n  \"key") + std::to_string(index) + R"(": [1.50, "a/b", {}])";
  }
  text += "\n}\n";
  for (auto _ : state) {
    const auto value = OrderedJSON::parse(text);
    benchmark::DoNotOptimize(value->text("  "));
  }
  count(state, text.size());
}
BENCHMARK(orderedJSON)->Arg(100)->Arg(100'000);

void transcript(benchmark::State& state) {
  // The settings stand at the front: the whole file is searched, from its end.
  std::string path = "/tmp/corvane-transcript-XXXXXX";
  const int file = ::mkstemp(path.data());
  if (file < 0) std::abort();
  std::string line = R"({"type":"turn_context","payload":{"approvals_reviewer":"auto_review",)"
                     R"("approval_policy":"on-request"}})"
                     "\n";
  std::size_t size = 0;
  while (size < static_cast<std::size_t>(state.range(0))) {
    if (::write(file, line.data(), line.size()) < 0) std::abort();
    size += line.size();
    line = R"({"type":"response_item","payload":{"text":")" + std::string(3000, 'x') + "\"}}\n";
  }
  ::close(file);
  for (auto _ : state) benchmark::DoNotOptimize(CodexTranscript::autoReviewed(path));
  count(state, size);
  ::unlink(path.c_str());
}
BENCHMARK(transcript)->Arg(100'000)->Arg(60'000'000);

}  // namespace

BENCHMARK_MAIN();
