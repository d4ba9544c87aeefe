// Misbehaviours: how they are written, when they apply, what they make of a reply.
#include "misbehave.h"
#include "replies.h"
#include "wire_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>

using krvgw::Delivery;
using krvgw::Ending;
using krvgw::Fault;
using krvgw::Field;
using krvgw::Message;
using krvgw::MessageKind;
using krvgw::Misbehaviour;
using krvtest::hex;
using krvtest::sameBytes;

namespace {

Misbehaviour made(const std::string& text)
{
    std::string complaint;
    const auto parsed = krvgw::parseMisbehaviour(text, complaint);
    EXPECT_TRUE(parsed.has_value()) << text << ": " << complaint;
    return parsed.value_or(Misbehaviour{});
}

std::string refusalOf(const std::string& text)
{
    std::string complaint;
    EXPECT_FALSE(krvgw::parseMisbehaviour(text, complaint).has_value()) << text;
    return complaint;
}

Delivery planned(const Message& reply, const std::vector<std::string>& texts)
{
    std::vector<Misbehaviour> all;
    for (const std::string& text : texts) all.push_back(made(text));
    return krvgw::planDelivery(reply, all);
}

// "Auth", a body of call type, result and opaque bytes: 33 + 20 bytes.
Message authReply()
{
    return krvgw::makeReply({1, 0, 0, "Auth"}, krvgw::authReplyBody(0, hex("01 02 03 04 05 06 07 08 09 0A 0B 0C")));
}

Message statsReply()
{
    const krvgw::Result result{true, {{"q", 0, {{"a", "1", 0, {}}, {"b", "2", 0, {}}, {"c", "3", 0, {}}}}}};
    return krvgw::makeReply({1, 0, 0, "Admin"}, krvgw::operationReplyBody(krvgw::Operation::GetStats, result));
}

// The value of the n-th field of that kind, as the marks of the untouched reply place it.
std::uint32_t valueAt(const Message& untouched, const krvgw::Bytes& bytes, Field field, std::size_t nth = 1)
{
    for (const krvgw::FieldMark& mark : untouched.marks)
        if (mark.field == field && --nth == 0) return krvgw::numberAt(bytes, mark.at, mark.width);
    ADD_FAILURE() << "no such field";
    return 0;
}

std::vector<std::string> chosen(const std::vector<std::string>& texts, const krvgw::Occasion& occasion)
{
    std::vector<Misbehaviour> all;
    for (const std::string& text : texts) all.push_back(made(text));
    std::vector<std::string> written;
    for (const Misbehaviour& each : krvgw::misbehavioursFor(all, occasion)) written.push_back(each.written);
    return written;
}

}  // namespace

TEST(Misbehave, EveryNameOfTheTableIsUnderstood)
{
    for (const krvgw::MisbehaviourRow& row : krvgw::misbehaviourTable()) {
        std::string text(row.name);
        if (row.argument == "=HEX") text += "=00FF";
        else if (row.argument == "=TEXT") text += "=Other";
        else if (!row.argument.empty()) text += "=7";
        const Misbehaviour misbehaviour = made(text);
        EXPECT_EQ(misbehaviour.fault, row.fault) << text;
        EXPECT_FALSE(row.what.empty());
    }
    for (const krvgw::FieldRow& row : krvgw::fieldTable()) {
        const Misbehaviour misbehaviour = made(std::string(row.name) + "=7");
        EXPECT_EQ(misbehaviour.fault, Fault::SetField) << row.name;
        EXPECT_EQ(misbehaviour.field, row.field) << row.name;
    }
}

TEST(Misbehave, ArgumentsAreSetOrAdded)
{
    EXPECT_EQ(made("query-length=8").amount.value, 8);
    EXPECT_FALSE(made("query-length=8").amount.isAdded);
    EXPECT_EQ(made("query-length=0x7fFF").amount.value, 32767);
    EXPECT_EQ(made("query-length=+3").amount.value, 3);
    EXPECT_TRUE(made("query-length=+3").amount.isAdded);
    EXPECT_EQ(made("query-length=-3").amount.value, -3);
    EXPECT_TRUE(made("query-length=-3").amount.isAdded);
    EXPECT_EQ(made("query-length==-3").amount.value, -3);
    EXPECT_FALSE(made("query-length==-3").amount.isAdded);
    EXPECT_EQ(made("split=4/250").pause.count(), 250);
    EXPECT_EQ(made("delay").amount.value, 200);
    EXPECT_EQ(made("opaque=0aFF").bytes, hex("0A FF"));
    EXPECT_EQ(made("name=Other").text, "Other");
}

TEST(Misbehave, ConditionsAreUnderstoodInAnyOrder)
{
    for (const char* text : {"no-answer@get-stats#2%3", "no-answer%3#2@get-stats"}) {
        const Misbehaviour misbehaviour = made(text);
        EXPECT_EQ(misbehaviour.message, MessageKind::GetStats);
        EXPECT_EQ(misbehaviour.nth, 2u);
        EXPECT_EQ(misbehaviour.connection, 3u);
        EXPECT_EQ(misbehaviour.written, text);
    }
    EXPECT_EQ(made("id-length[4]=0").occurrence, 4u);
    EXPECT_EQ(made("id-length[*]=0").occurrence, 0u);
    EXPECT_EQ(made("id-length=0").occurrence, 1u);
}

TEST(Misbehave, NonsenseIsRefusedWithAReason)
{
    EXPECT_EQ(refusalOf("nonsense"), "no misbehaviour is named \"nonsense\"");
    EXPECT_EQ(refusalOf(""), "no misbehaviour is named \"\"");
    EXPECT_EQ(refusalOf("no-answer=3"), "\"no-answer\" takes no argument");
    EXPECT_EQ(refusalOf("close-at"), "\"close-at\" needs an argument: close-at=K");
    EXPECT_EQ(refusalOf("id-length"), "\"id-length\" needs an argument: id-length=N");
    EXPECT_EQ(refusalOf("id-length=x"), "\"x\" is not an argument of \"id-length\"");
    EXPECT_EQ(refusalOf("id-length="), "\"\" is not an argument of \"id-length\"");
    EXPECT_EQ(refusalOf("id-length=--3"), "\"--3\" is not an argument of \"id-length\"");
    EXPECT_EQ(refusalOf("id-length[0]=3"), "\"id-length[0]=3\" is not NAME[K] or NAME[*]");
    EXPECT_EQ(refusalOf("id-length[=3"), "\"id-length[=3\" is not NAME[K] or NAME[*]");
    EXPECT_EQ(refusalOf("delay=-1"), "\"-1\" is not an argument of \"delay\"");
    EXPECT_EQ(refusalOf("opaque=123"), "\"123\" is not an argument of \"opaque\"");
    EXPECT_EQ(refusalOf("no-answer@lunch"), "no message is named \"lunch\"");
    EXPECT_EQ(refusalOf("no-answer#0"), "\"#0\" is not a number from 1");
    EXPECT_EQ(refusalOf("no-answer%x"), "\"%x\" is not a number from 1");
}

TEST(Misbehave, TheyApplyOnTheirOccasionOnly)
{
    const std::vector<std::string> all = {"no-answer", "no-answer@init", "no-answer@init#2", "no-answer#5",
                                          "no-answer%2"};
    const std::vector<std::string> onFirstInit = {"no-answer", "no-answer@init"};
    const std::vector<std::string> onSecondInit = {"no-answer", "no-answer@init", "no-answer@init#2", "no-answer#5"};
    const std::vector<std::string> onOther = {"no-answer", "no-answer%2"};
    EXPECT_EQ(chosen(all, {1, MessageKind::Init, 1, 4}), onFirstInit);
    EXPECT_EQ(chosen(all, {1, MessageKind::Init, 2, 5}), onSecondInit);
    EXPECT_EQ(chosen(all, {2, MessageKind::Close, 1, 6}), onOther);
}

TEST(Misbehave, OnAcceptGoesByTheConnectionAlone)
{
    const std::vector<Misbehaviour> all = {made("close-on-accept%2"), made("reset-on-accept%3")};
    EXPECT_FALSE(krvgw::misbehaviourOnAccept(all, 1).has_value());
    EXPECT_EQ(krvgw::misbehaviourOnAccept(all, 2).value().fault, Fault::CloseOnAccept);
    EXPECT_EQ(krvgw::misbehaviourOnAccept(all, 3).value().fault, Fault::ResetOnAccept);
    EXPECT_TRUE(krvgw::misbehavioursFor(all, {2, MessageKind::Handshake, 1, 1}).empty());
}

TEST(Misbehave, WithoutAnyTheReplyIsSentAsItIs)
{
    const Delivery delivery = planned(authReply(), {});
    EXPECT_TRUE(sameBytes(authReply().bytes, delivery.reply.bytes));
    EXPECT_TRUE(delivery.isSent);
    EXPECT_EQ(delivery.ending, Ending::None);
    EXPECT_TRUE(delivery.notes.empty());
}

TEST(Misbehave, AFieldIsChangedAndNothingElse)
{
    const Message reply = authReply();
    krvgw::Bytes expected = reply.bytes;
    expected[3] = 0x64;
    EXPECT_TRUE(sameBytes(expected, planned(reply, {"bad-eyecatcher"}).reply.bytes));

    expected = reply.bytes;
    for (std::size_t at = 16; at < 20; ++at) expected[at] = 0xFF;
    expected[19] = 0xFC;
    EXPECT_TRUE(sameBytes(expected, planned(reply, {"header-rc=-4"}).reply.bytes));

    expected = reply.bytes;
    expected[32] = 19;
    EXPECT_TRUE(sameBytes(expected, planned(reply, {"data-length=-1"}).reply.bytes));
}

TEST(Misbehave, PresetsSetTheirFields)
{
    const Message auth = authReply();
    EXPECT_EQ(valueAt(auth, planned(auth, {"refuse-auth"}).reply.bytes, Field::AuthRc), 5u);
    EXPECT_EQ(valueAt(auth, planned(auth, {"header-rc"}).reply.bytes, Field::GatewayRc), 3u);
    const Message stats = statsReply();
    EXPECT_EQ(valueAt(stats, planned(stats, {"refuse-admin=9"}).reply.bytes, Field::AdminRc), 9u);
    EXPECT_EQ(valueAt(stats, planned(stats, {"exception"}).reply.bytes, Field::ExceptionFlag), 1u);
}

TEST(Misbehave, EveryFieldOfAStatsReplyCanBeChanged)
{
    const Message reply = statsReply();
    for (const krvgw::FieldRow& row : krvgw::fieldTable()) {
        const bool isThere = std::any_of(reply.marks.begin(), reply.marks.end(),
                                         [&row](const krvgw::FieldMark& mark) { return mark.field == row.field; });
        const Delivery delivery = planned(reply, {std::string(row.name) + "=+1"});
        ASSERT_EQ(delivery.notes.size(), 1u);
        const bool isMissed = delivery.notes[0].ends_with("(no such field in this reply)");
        EXPECT_EQ(isMissed, !isThere) << row.name;
        if (!isThere) continue;
        EXPECT_EQ(valueAt(reply, delivery.reply.bytes, row.field), valueAt(reply, reply.bytes, row.field) + 1)
            << row.name;
    }
}

TEST(Misbehave, ChosenOccurrencesAreChanged)
{
    const Message reply = statsReply();
    const auto second = planned(reply, {"id-length[2]=0x1234"}).reply.bytes;
    EXPECT_EQ(valueAt(reply, second, Field::IdLength, 1), 1u);
    EXPECT_EQ(valueAt(reply, second, Field::IdLength, 2), 0x1234u);
    EXPECT_EQ(valueAt(reply, second, Field::IdLength, 3), 1u);
    const auto all = planned(reply, {"value-length[*]==-1"}).reply.bytes;
    for (std::size_t nth = 1; nth <= 3; ++nth) EXPECT_EQ(valueAt(reply, all, Field::ValueLength, nth), 0xFFFFu);
}

TEST(Misbehave, BodiesAreShortenedWithTheirDataLength)
{
    const auto none = planned(authReply(), {"no-body"}).reply.bytes;
    EXPECT_TRUE(sameBytes(krvtest::reply("Auth", {}), none));
    const auto three = planned(authReply(), {"short-body=3"}).reply.bytes;
    EXPECT_TRUE(sameBytes(krvtest::reply("Auth", hex("00 00 00")), three));
    const auto oneLess = planned(authReply(), {"short-body=-1"}).reply.bytes;
    const auto nineteen = hex("00 00 00 00 00 00 00 00 01 02 03 04 05 06 07 08 09 0A 0B");
    EXPECT_TRUE(sameBytes(krvtest::reply("Auth", nineteen), oneLess));
    const auto longer = planned(authReply(), {"short-body=8", "extra-body=2"}).reply.bytes;
    EXPECT_TRUE(sameBytes(krvtest::reply("Auth", krvtest::zeros(10)), longer));
}

TEST(Misbehave, TheNameIsReplacedWithItsLength)
{
    const auto renamed = planned(authReply(), {"name=Stranger"}).reply.bytes;
    EXPECT_TRUE(sameBytes(krvtest::reply("Stranger", krvtest::slice(authReply().bytes, 33, 20)), renamed));
    const auto nameless = planned(authReply(), {"name=", "short-body=1"}).reply.bytes;
    EXPECT_TRUE(sameBytes(krvtest::reply("", hex("00")), nameless));
}

TEST(Misbehave, OpaqueBytesAreReplaced)
{
    const auto bytes = planned(authReply(), {"opaque=7FF0000000000001AABBCCDD"}).reply.bytes;
    EXPECT_TRUE(sameBytes(hex("7F F0 00 00 00 00 00 01 AA BB CC DD"), krvtest::slice(bytes, 41, 12)));
}

TEST(Misbehave, RepliesAreCutAtAnyPlace)
{
    const krvgw::Bytes whole = authReply().bytes;
    for (std::size_t place = 0; place <= whole.size(); ++place) {
        const Delivery closed = planned(authReply(), {"close-at=" + std::to_string(place)});
        EXPECT_EQ(closed.ending, Ending::Close);
        EXPECT_TRUE(sameBytes(krvtest::slice(whole, 0, place), closed.reply.bytes));
    }
    EXPECT_EQ(planned(authReply(), {"reset-at=-1"}).reply.bytes.size(), whole.size() - 1);
    EXPECT_EQ(planned(authReply(), {"reset-at=-1"}).ending, Ending::Reset);
    EXPECT_EQ(planned(authReply(), {"stall-at=5"}).reply.bytes.size(), 5u);
    EXPECT_EQ(planned(authReply(), {"stall-at=5"}).ending, Ending::Stall);
    EXPECT_EQ(planned(authReply(), {"close-at=100000"}).reply.bytes.size(), whole.size());
}

TEST(Misbehave, HugeClaimsCloseBehindLittleData)
{
    const Message reply = authReply();
    const Delivery delivery = planned(reply, {"huge-claim"});
    EXPECT_EQ(valueAt(reply, delivery.reply.bytes, Field::DataLength), 0x7FFFFFFFu);
    EXPECT_EQ(delivery.reply.bytes.size(), reply.bytes.size());
    EXPECT_EQ(delivery.ending, Ending::Close);
}

TEST(Misbehave, TheWaysOfSendingArePlanned)
{
    EXPECT_FALSE(planned(authReply(), {"no-answer"}).isSent);
    EXPECT_EQ(planned(authReply(), {"no-answer"}).ending, Ending::None);
    EXPECT_FALSE(planned(authReply(), {"close-before"}).isSent);
    EXPECT_EQ(planned(authReply(), {"close-before"}).ending, Ending::Close);
    EXPECT_FALSE(planned(authReply(), {"reset-before"}).isSent);
    EXPECT_EQ(planned(authReply(), {"reset-before"}).ending, Ending::Reset);
    EXPECT_EQ(planned(authReply(), {"close-after"}).ending, Ending::Close);
    EXPECT_EQ(planned(authReply(), {"reset-after"}).ending, Ending::Reset);
    EXPECT_EQ(planned(authReply(), {"delay=30"}).delay.count(), 30);
    EXPECT_TRUE(planned(authReply(), {"byte-by-byte=9"}).isByteByByte);
    EXPECT_EQ(planned(authReply(), {"byte-by-byte=9"}).bytePause.count(), 9);
    const std::vector<std::size_t> places = {33, 52};
    EXPECT_EQ(planned(authReply(), {"split=33/7", "split=-1/7"}).splits, places);
    EXPECT_EQ(planned(authReply(), {"split=33/7"}).splitPause.count(), 7);
}

TEST(Misbehave, TheyTakeEffectInTheirOrder)
{
    const Message reply = authReply();
    const auto bytes = planned(reply, {"short-body=4", "data-length=+100", "close-after"}).reply.bytes;
    EXPECT_EQ(bytes.size(), 37u);
    EXPECT_EQ(valueAt(reply, bytes, Field::DataLength), 104u);
}
