// A gateway stand-in inside the test process: it plays a script on each connection and keeps what it received.
//
// A script is a list of steps, played in order by a thread of the peer's own. Every wait of that thread is bounded; a
// step that cannot be played (the client went away, sent something else, never came) ends the script and is told by
// problem(). Tests compare what was received with bytes of their own:
//
//     ScriptedPeer peer({{expectMessage(), sendWhole(handshakeReply())}});
//     int client = connectToPeer(peer);
//     ...
//     peer.finish();
//     EXPECT_EQ("", peer.problem());
//     EXPECT_TRUE(sameBytes(handshakeRequest(), peer.received()));
//
// How a reply looks: a client reads back as many name bytes as it sent itself, so the reply's header carries a name of
// the request's length: "BASE" to handshake and close, "Auth" to authorisations, "Admin" to admin calls.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "wire_bytes.h"

namespace krvtest {

struct PeerLink;

// One step; a false result ends the script (the step has said why, or ended the connection on purpose).
using PeerStep = std::function<bool(PeerLink&)>;
using Script = std::vector<PeerStep>;

// ---- Receiving ----------------------------------------------------------------------------------------------------

PeerStep expectBytes(std::size_t count);
// A whole message by its own header: the length of its name, the length of its body.
PeerStep expectMessage();
// Everything up to the client's close; a reset counts as one.
PeerStep expectClose();
// The same without an opinion whether anything comes: nothing may.
PeerStep expectCloseWithoutBytes();

// ---- Sending ------------------------------------------------------------------------------------------------------

PeerStep sendWhole(Bytes bytes);
// Each piece is sent once the client has read the one before.
PeerStep sendPieces(std::vector<Bytes> pieces);
PeerStep sendByteByByte(Bytes bytes);
PeerStep sendSplitAt(Bytes bytes, std::size_t position);

// ---- The rest -----------------------------------------------------------------------------------------------------

PeerStep closeLink();  // an orderly close
PeerStep resetLink();  // RST, what is on its way is dropped
PeerStep waitUntilTold();
PeerStep doThis(std::function<void()> action);

Script operator+(Script left, const Script& right);

// ---- Conversations ------------------------------------------------------------------------------------------------

// What a well-behaved gateway answers.
struct GatewayAnswers {
    Bytes protocolMap = hex("01 02 03 04 05 06 07 08");  // opaque, first authorisation reply
    Bytes authServerVersion = hex("A1 A2 A3 A4");        // opaque, first authorisation reply
    Bytes returnMap = hex("11 12 13 14 15 16 17 18");    // opaque, second authorisation reply
    Bytes adminServerVersion = hex("B1 B2 B3 B4");       // opaque, every admin init reply
    std::string version = "1_0";                         // text of the attribute "protocol"
};

// Handshake and both steps of the authorisation.
Script greeting(const GatewayAnswers& answers = {});
// An admin init call and a call that is answered with this data; callType 1 get attribute, 5 invoke.
Script adminExchange(const GatewayAnswers& answers, std::int32_t callType, const Bytes& callData);
// Everything that opening a connection takes.
Script opening(const GatewayAnswers& answers = {});
Script query(const Bytes& callData, const GatewayAnswers& answers = {});
// The close request, its reply, the end.
Script farewell();
// All of it, with one query for each element of queryData.
Script wholeConversation(const std::vector<Bytes>& queryData, const GatewayAnswers& answers = {});

// ---- The peer -----------------------------------------------------------------------------------------------------

class ScriptedPeer {
public:
    // Listens on 127.0.0.1 and plays the n-th script on the n-th connection, one after the other.
    explicit ScriptedPeer(std::vector<Script> scripts);

    // Plays the script on its end of a socket pair; the other end is clientSocket().
    static ScriptedPeer onSocketPair(Script script);

    ~ScriptedPeer();
    ScriptedPeer(ScriptedPeer&&) noexcept;
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(ScriptedPeer&&) = delete;

    int port() const;
    int clientSocket() const;  // closed by the peer's destructor unless closed by closeClientSocket

    void closeClientSocket();

    // Lets one waitUntilTold go on.
    void tell();

    // True once this many bytes were received on the connection; false if that never happens.
    bool waitUntilReceived(std::size_t count, std::size_t connection = 0);

    // Waits until the scripts are played. What follows is complete only afterwards.
    void finish();

    // "" if every step could be played.
    std::string problem() const;

    std::size_t connections() const;
    Bytes received(std::size_t connection = 0) const;
    // What each receiving step of the script got.
    std::vector<Bytes> messages(std::size_t connection = 0) const;

private:
    struct Shared;
    ScriptedPeer();
    void start(std::vector<Script> scripts);
    std::unique_ptr<Shared> shared_;
};

// A connected, blocking socket to the peer, to be closed by the caller.
int connectToPeer(const ScriptedPeer& peer);

// A port of 127.0.0.1 that was free a moment ago and that nobody listens on.
int unusedPort();

}  // namespace krvtest
