// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/Requests.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace stereo::app {

namespace {

constexpr std::size_t mostPairs = 32;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::optional<std::string> decoded(std::string_view text, bool plusIsSpace) {
  std::string result;
  for (std::size_t k = 0; k < text.size(); ++k) {
    char c = text[k];
    if (c == '%') {
      const int high = k + 2 < text.size() ? hexDigit(text[k + 1]) : -1;
      const int low = k + 2 < text.size() ? hexDigit(text[k + 2]) : -1;
      if (high < 0 || low < 0) {
        return std::nullopt;
      }
      c = static_cast<char>(16 * high + low);
      k += 2;
    } else if (c == '+' && plusIsSpace) {
      c = ' ';
    }
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      return std::nullopt;
    }
    result += c;
  }
  return result;
}

// Takes the text up to the separator off the front.
std::string_view takePart(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return part;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

bool isCameraName(std::string_view name) {
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
  });
}

std::optional<ViewerMessage> parseWatch(std::string_view rest) {
  Watch watch;
  watch.camera = takePart(rest, ' ');
  if (!isCameraName(watch.camera) || (!rest.empty() && rest.back() == ',')) {
    return std::nullopt;
  }
  while (!rest.empty()) {
    const std::optional<View> view = viewNamed(takePart(rest, ','));
    if (!view) {
      return std::nullopt;
    }
    watch.views |= 1U << static_cast<unsigned>(*view);
  }
  return watch;
}

}  // namespace

std::optional<Form> parseForm(std::string_view text) {
  Form form;
  while (!text.empty()) {
    std::string_view value = takePart(text, '&');
    const std::string_view name = takePart(value, '=');
    const auto plainName = decoded(name, true);
    auto plainValue = decoded(value, true);
    if (!plainName || !plainValue || valueOf(form, *plainName) != nullptr || form.size() == mostPairs) {
      return std::nullopt;
    }
    form.emplace_back(*plainName, std::move(*plainValue));
  }
  return form;
}

const std::string* valueOf(const Form& form, std::string_view name) {
  const auto found = std::find_if(form.begin(), form.end(), [&](const auto& pair) { return pair.first == name; });
  return found == form.end() ? nullptr : &found->second;
}

std::optional<Target> parseTarget(std::string_view text) {
  const auto path = decoded(takePart(text, '?'), false);
  auto query = parseForm(text);
  if (!path || path->empty() || path->front() != '/' || !query) {
    return std::nullopt;
  }
  return Target{*path, std::move(*query)};
}

std::optional<ViewerMessage> parseViewerMessage(std::string_view text) {
  const std::string_view verb = takePart(text, ' ');
  if (verb == "watch") {
    return parseWatch(text);
  }
  Acknowledged acknowledged;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), acknowledged.number);
  if (verb != "ack" || text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return acknowledged;
}

std::string hostName(std::string_view host) {
  std::string_view name;
  std::string_view port;
  if (!host.empty() && host.front() == '[') {
    const std::size_t end = host.find(']');
    if (end == std::string_view::npos) {
      return {};
    }
    name = host.substr(1, end - 1);
    port = host.substr(end + 1);
  } else {
    name = host.substr(0, host.find(':'));
    port = host.substr(name.size());
  }
  const bool isPort =
      port.empty() || (port.size() >= 2 && port.size() <= 6 && port.front() == ':' &&
                       std::all_of(port.begin() + 1, port.end(), [](unsigned char c) { return std::isdigit(c) != 0; }));
  const bool isName = std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == ':' || c == '_';
  });
  std::string result;
  if (isPort && isName) {
    for (const char c : name) {
      result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return result;
}

bool isOwnOrigin(std::string_view origin, std::string_view host) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (origin.substr(0, scheme.size()) == scheme) {
      const std::string_view rest = origin.substr(scheme.size());
      return rest.size() == host.size() && !hostName(host).empty() &&
             std::equal(rest.begin(), rest.end(), host.begin(),
                        [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
    }
  }
  return false;
}

std::string_view bearerToken(std::string_view authorization) {
  constexpr std::string_view scheme = "Bearer ";
  return authorization.substr(0, scheme.size()) == scheme ? trimmed(authorization.substr(scheme.size()))
                                                          : std::string_view();
}

std::string_view protocolToken(std::string_view protocols) {
  constexpr std::string_view prefix = "token.";
  while (!protocols.empty()) {
    const std::string_view each = trimmed(takePart(protocols, ','));
    if (each.substr(0, prefix.size()) == prefix) {
      return each.substr(prefix.size());
    }
  }
  return {};
}

bool offersProtocol(std::string_view protocols, std::string_view wanted) {
  while (!protocols.empty()) {
    if (trimmed(takePart(protocols, ',')) == wanted) {
      return true;
    }
  }
  return false;
}

bool isSameToken(std::string_view one, std::string_view other) {
  if (one.empty() || one.size() != other.size()) {
    return false;
  }
  unsigned difference = 0;
  for (std::size_t k = 0; k < one.size(); ++k) {
    difference |= static_cast<unsigned char>(one[k]) ^ static_cast<unsigned char>(other[k]);
  }
  return difference == 0;
}

}  // namespace stereo::app
