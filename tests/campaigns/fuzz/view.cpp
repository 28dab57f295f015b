// SPDX-License-Identifier: Apache-2.0
// Requests and messages of the live view: whatever comes, nothing changes without the token, and nothing that is
// refused is done.
#include <string>
#include <string_view>

#include "apps/stereo-camera/view/Requests.hpp"
#include "apps/stereo-camera/view/ViewServer.hpp"
#include "tests/campaigns/fuzz/Target.hpp"

namespace {

using namespace stereo::app;
using stereo::fuzz::require;

constexpr std::string_view token = "0123456789abcdef";

class Site final : public ViewSite {
public:
  std::vector<std::pair<std::string, CameraFeed*>> feeds() override { return {{"front", &m_feed}}; }
  std::string status(bool, int) override { return "{}"; }
  bool isHealthy() override { return true; }
  std::string metrics(int) override { return ""; }
  ControlReply control(const Form&) override {
    ++controls;
    return {200, "done"};
  }

  int controls = 0;

private:
  CameraFeed m_feed;
};

void tryRequest(std::string_view bytes) {
  static Site site;
  static const ServerOptions open = [] {
    ServerOptions options;
    options.token = token;
    options.names = {"localhost"};
    return options;
  }();
  static const ServerOptions closed = [] {
    ServerOptions options = open;
    options.tokenToSee = true;
    return options;
  }();
  const bool hasToken = bytes.find(token) != std::string_view::npos;
  for (const ServerOptions* const options : {&open, &closed}) {
    site.controls = 0;
    const unsigned status = answerTo(bytes, *options, site);
    require(status == 0 || status == 101 || (status >= 200 && status < 600), "an answer without a status");
    require(site.controls == 0 || (hasToken && status == 200), "a change without the token");
    require(status != 101 || options == &open || hasToken, "a WebSocket without the token");
  }
}

void tryTexts(std::string_view text) {
  if (const auto message = parseViewerMessage(text); message && std::holds_alternative<Watch>(*message)) {
    const Watch& watch = std::get<Watch>(*message);
    require(!watch.camera.empty() && (watch.views & ~allViews) == 0, "a view that does not exist");
  }
  if (const auto form = parseForm(text)) {
    for (const auto& [name, value] : *form) {
      require(valueOf(*form, name) != nullptr, "a name that is not found again");
      require(name.size() <= text.size() && value.size() <= text.size(), "a value longer than its text");
    }
  }
  if (const auto target = parseTarget(text)) {
    require(target->path.front() == '/', "a path that does not begin at the top");
  }
  const std::string host = hostName(text);
  require(host.find('/') == std::string::npos && host.find('@') == std::string::npos, "a name that is none");
  const std::size_t half = text.size() / 2;
  require(!isOwnOrigin(text.substr(0, half), text.substr(half)) || !hostName(text.substr(half)).empty(),
          "an origin without a host");
  require(isSameToken(text, text) == !text.empty(), "a token that differs from itself");
  require(protocolToken(text).size() <= text.size() && bearerToken(text).size() <= text.size(), "a token from nowhere");
  static_cast<void>(offersProtocol(text, "stereo-camera.1"));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  tryRequest(text);
  tryTexts(text);
  return 0;
}
