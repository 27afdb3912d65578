// Writes the seed corpora of the fuzz targets: the payloads, replies, bags,
// archives and files the tests use, in each target's input shape.
//   ostrel-fuzz-seeds OUT_DIR   (writes OUT_DIR/<target>/seed-N)
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "events/event_archive.h"
#include "fuzz_platform.h"
#include "login/ol_user_meta_info.h"
#include "login/tokens.h"
#include "ostrel/ol_push_builder.h"
#include "platform/defaults.h"
#include "push/push_archive.h"
#include "status/flag.h"
#include "support/every_event.h"

namespace {

using namespace ostrel;
namespace fs = std::filesystem;

void writeAll(const fs::path& folder, const std::vector<std::string>& seeds) {
  fs::create_directories(folder);
  for (std::size_t i = 0; i < seeds.size(); ++i) {
    std::ofstream(folder / ("seed-" + std::to_string(i)), std::ios::binary) << seeds[i];
  }
}

const std::vector<std::string> kPayloads = {
    R"({"aps":{"t":"N","alert":"Hello","sound":"ding","badge":3},"push_id":"p1","custom":{"k":"v","n":1}})",
    R"({"aps":{"t":"N","alert":{"body":"Hi"}},"push_id":"p2"})",
    R"({"aps":{"t":"U","alert":"Read"},"push_id":"p3","url":"https://ostrel.example/page"})",
    R"({"aps":{"t":"B","content-available":1},"push_id":"p4","custom":{"refresh":true}})",
    R"({"aps":{"t":"P"},"push_id":"p5"})",
    R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"ftp://a.b/c"})",
    R"({"aps":{"t":"B"},"push_id":"x","custom":{"k":1}})",
    R"({"aps":{"t":"N","alert":"b","badge":"two"},"push_id":"x"})",
    R"({"aps":"N","push_id":"x"})",
    R"({"aps":{"t":"N","alert":{"title":"t"}},"push_id":"x"})",
    R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"https://u:p@[::ffff:1.2.3.4]:8/a?q#f"})",
    R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"http:foo"})",
    R"([1,2,3])",
};

const std::vector<std::string> kBags = {
    R"({"k":"v","f":1.5,"i":-3,"b":true,"n":null})",
    R"({"nested":{"a":[1,2,{"b":"c"}]},"big":18446744073709551615})",
    R"({"s":"é🇫🇷👍🏽","e":""})",
    R"({})",
};

// The reply target's input: final URL, then the body, then (read from the end)
// the transport-error switch and the status.
std::string reply(const std::string& url, const std::string& body, long status) {
  std::string out = url + "\\n" + body;
  out.push_back('\0');  // no transport error
  out.push_back(static_cast<char>((status + 1) & 0xff));
  out.push_back(static_cast<char>(((status + 1) >> 8) & 0xff));
  return out;
}

std::vector<std::string> eventArchives() {
  std::vector<std::string> out;
  for (const auto& e : test::oneEventOfEachClass()) out.push_back(archivedBytes(*e));
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
    return 2;
  }
  const fs::path out = argv[1];
  const std::string& root = fuzz::quietRoot();

  writeAll(out / "push_payload", kPayloads);
  std::vector<std::string> bags = kBags;
  bags.insert(bags.end(), kPayloads.begin(), kPayloads.end());
  writeAll(out / "simple_object", bags);

  const std::string api = "https://api.ostrel.example/v1/Bulk";
  writeAll(out / "reply",
           {reply(api, R"({"status":"ok","result":{"accepted":3}})", 200),
            reply(api, R"({"error":{"code":401,"message":"Unauthorized","extra":{}}})", 401),
            reply(api, "plain text", 500), reply(api, std::string("\xff\xfe\x00", 3), 200),
            reply("https://elsewhere.example/", "{}", 200), reply(api, "", 205),
            reply(api, "[1,2]", 408)});

  std::vector<std::string> archives;
  for (const auto& e : eventArchives()) archives.push_back(std::string(1, '\0') + e);
  for (const auto& payload : kPayloads) {
    auto push = OLPushBuilder::buildPushObject(std::string_view(payload), false);
    if (push) archives.push_back("\x01" + archivePush(**push));
  }
  archives.push_back("\x02" + archivedBytes(Token("S_abc")));
  archives.push_back("\x02" + archivedBytes(AutologinToken("A_1700000000_xyz")));
  archives.push_back("\x03" + archivedBytes(OLUserMetaInfo(Json{{"age", 3}}, 1.7e9, 3600)));
  archives.push_back("\x04" + archivedBytes(Flag("optin", true)));
  writeAll(out / "archive", archives);

  const auto& files = fuzz::quietPlatform()->files;
  auto settings = platform::makeFileSettingsStore(files, root + "/seed.json");
  settings->set("s", std::string("text"));
  settings->set("b", true);
  settings->set("i", int64_t{42});
  settings->set("f", 1.25f);
  settings->set("d", 2.5);
  settings->set("t", platform::SettingsDate{1.7e9});
  settings->set("x", platform::SettingsData{"\x01\x02"});
  writeAll(out / "settings", {*files->readFile(root + "/seed.json"),
                              R"({"a":{"type":"float","value":1e300}})", "{", "[]"});

  std::string chunks;
  int index = 0;
  for (const auto& e : eventArchives()) {
    const std::string name = "1700000000.0000" + std::to_string(index++);
    chunks.push_back(static_cast<char>(index % 3));
    chunks.push_back(static_cast<char>(name.size()));
    chunks += name;
    chunks.push_back(static_cast<char>(e.size() & 0xff));
    chunks.push_back(static_cast<char>((e.size() >> 8) & 0xff));
    chunks += e;
  }
  writeAll(out / "chunk_folder", {chunks});
  return 0;
}
