// The bodies of the replies, field by field.
//
//   handshake   00 02 "en" 00 02 "GB" and ten zeros (clients do not look at it)
//   auth1       call type 0, authorisation rc, 8 + 4 opaque bytes that the second step returns
//   auth2       call type 1, authorisation rc, 8 opaque bytes
//   init        call type 0, admin rc, 4 opaque bytes that the call behind it returns
//   attribute   call type 1, admin rc, exception flag, array flag 0, serialised text
//   operation   call type 5, admin rc, exception flag, array flag, [number of responses,] responses
//   close       nothing
//
// An attribute's text so stands 6 bytes into the result for its length, 8 for itself: one array flag and the five
// bytes AC ED 00 05 74 come first.
#pragma once

#include "catalogue.h"
#include "wire.h"

namespace krvgw {

constexpr std::size_t AUTH1_OPAQUE = 12;
constexpr std::size_t AUTH2_OPAQUE = 8;
constexpr std::size_t INIT_OPAQUE = 4;

Message handshakeReplyBody();
Message authReplyBody(std::uint32_t callType, const Bytes& opaque);
Message initReplyBody(const Bytes& opaque);
Message attributeReplyBody(std::string_view text);
Message operationReplyBody(Operation operation, const Result& result);

// A call that cannot be carried out: the exception flag, and the reason as a serialised text.
Message exceptionReplyBody(std::uint32_t callType, std::string_view reason);

}  // namespace krvgw
