// How long large forms hold up the loop: each is posted, changed and deleted again, while GET /healthz goes round every
// 2 ms. Shows the answer to the first post, and the longest rounds: in time, and in CPU that the server used until it
// answered.
//
//     bench_forms SERVER [ROUNDS]

#include <fmt/core.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bench/loopback_server.h"

namespace {

namespace fs = std::filesystem;
using namespace weir::bench;

struct Form {
  const char* name;
  std::string text;
};

// {"input":…, "output":…} and `mappings` mappings of `members` members each, whose texts are `size` long.
std::string nested(int mappings, int members, std::size_t size) {
  std::string text = R"({"input":{"0":{"url":"udp://127.0.0.1:9"}},"output":{})";
  for (int i = 0; i < mappings; ++i) {
    text += fmt::format(R"(,"mapping{}":{{"a":0)", i);
    for (int k = 1; k < members; ++k) text += fmt::format(R"(,"k{:03}":"{}")", k, std::string(size, 'x'));
    text += '}';
  }
  return text + '}';
}

// Dotted keys that all lead through `depth` mappings.
std::string dotted(int keys, int depth) {
  std::string path;
  for (int i = 0; i < depth; ++i) path += fmt::format("m{}.", i);
  std::string text = R"({"input":{},"output":{})";
  for (int i = 0; i < keys; ++i) text += fmt::format(R"(,"{}k{}":{})", path, i, i);
  return text + '}';
}

std::string many_inputs(int inputs, int settings) {
  std::string text = R"({"output":{},"input":{)";
  for (int i = 0; i < inputs; ++i) {
    text += fmt::format(R"({}"{}":{{"url":"udp://127.0.0.1:{}")", i == 0 ? "" : ",", i, i);
    for (int k = 0; k < settings; ++k) text += fmt::format(R"(,"k{}":{})", k, i);
    text += '}';
  }
  return text + "}}";
}

std::string many_outputs(int outputs) {
  std::string text =
      R"({"input":{"0":{"url":"udp://127.0.0.1:9"}},"output":{"0":{"protocol":"udp","hostname":"h","port":1})";
  for (int i = 1; i < outputs; ++i)
    text += fmt::format(R"(,"{}":{{"protocol":"udp","hostname":"h{}","port":{}}})", i, i, i);
  return text + "}}";
}

void measure(const Form& form, pid_t server, int rounds) {
  std::string first;
  Prober prober(server);
  for (int i = 0; i < rounds; ++i) {
    const std::string answer = request("POST", "/api/streams", form.text);
    if (i == 0) first = answer.substr(0, answer.find("\r\n"));
    const std::size_t at = answer.find(R"({"id":)");
    if (at == std::string::npos) continue;
    const std::string stream = "/api/streams/" + std::to_string(std::atoi(answer.c_str() + at + 6));
    request("PATCH", stream, R"({"label":"changed"})");
    request("DELETE", stream);
  }
  const Prober::Rounds probed = prober.finish();
  const auto& [times, cpu] = probed;
  fmt::print(
      "{:<30} {:>7} bytes  {:<24} {:>4} rounds  median {:5.2f} ms  99 % {:6.2f} ms  longest {:6.2f} ms, {:6.2f} ms of "
      "CPU\n",
      form.name, form.text.size(), first, times.size(), times[times.size() / 2], times[times.size() * 99 / 100],
      times.back(), cpu.back());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  if (argc < 2) {
    fmt::print(stderr, "usage: {} SERVER [ROUNDS]\n", argv[0]);
    return 2;
  }
  std::string data = (fs::temp_directory_path() / "weir-bench-XXXXXX").string();
  if (!mkdtemp(data.data())) return 1;
  const pid_t server = spawn_server(argv[1], data, {});
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 10;
  for (const Form& form : std::vector<Form>{
           {"small", nested(1, 4, 8)},
           {"9,600 members in 10 mappings", nested(10, 960, 80)},
           {"9,900 members in one mapping", nested(1, 9900, 80)},
           {"texts of 1 KB, 900 of them", nested(9, 100, 1000)},
           {"960 dotted keys", dotted(960, 1)},
           {"960 dotted keys, 60 deep", dotted(960, 60)},
           {"9 inputs of 960 settings", many_inputs(9, 960)},
           {"480 inputs of 15 settings", many_inputs(480, 15)},
           {"480 outputs", many_outputs(480)},
       }) {
    measure(form, server, rounds);
  }
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  fs::remove_all(data);
}
