// SPDX-License-Identifier: Apache-2.0
// What viewers ask for, read with suspicion: targets, forms, messages, names, tokens.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "apps/stereo-camera/view/Views.hpp"

namespace stereo::app {

/// Names and values in their order, decoded.
using Form = std::vector<std::pair<std::string, std::string>>;

/// Reads "name=value&…" with percent-encoding and '+' for a space. Nothing for a bad encoding, control characters, a
/// name that comes twice, or more than 32 pairs.
std::optional<Form> parseForm(std::string_view text);
/// The value of a name; null if there is none.
const std::string* valueOf(const Form& form, std::string_view name);

/// A request's target: "/path?name=value".
struct Target {
  std::string path;  ///< decoded; always begins with '/'
  Form query;
};
/// Nothing for anything but an absolute path, or a bad encoding in it.
std::optional<Target> parseTarget(std::string_view text);

/// What a viewer's message asks for.
struct Watch {
  std::string camera;
  std::uint32_t views = 0;  ///< bits by `View`
};
struct Acknowledged {
  std::uint32_t number = 0;
};
using ViewerMessage = std::variant<Watch, Acknowledged>;
/// Reads "watch CAMERA", "watch CAMERA view,view" and "ack N". Nothing for any other text.
std::optional<ViewerMessage> parseViewerMessage(std::string_view text);

/// The name in a Host header or in an address, in lower case without its port: "[::1]:8080" gives "::1". Empty if it is
/// malformed.
std::string hostName(std::string_view host);

/// Whether a browser's page from this origin may use a server that it knows as `host` (the Host header): only the
/// server's own page may. An origin of another program on the same machine differs in its port.
bool isOwnOrigin(std::string_view origin, std::string_view host);

/// The token of "Bearer TOKEN"; empty for anything else.
std::string_view bearerToken(std::string_view authorization);
/// The token that the list of subprotocols holds as "token.TOKEN"; empty if none.
std::string_view protocolToken(std::string_view protocols);
/// Whether the list of subprotocols holds this one.
bool offersProtocol(std::string_view protocols, std::string_view wanted);

/// Whether both are the same, and not empty, in a time that does not depend on where they differ.
bool isSameToken(std::string_view one, std::string_view other);

}  // namespace stereo::app
