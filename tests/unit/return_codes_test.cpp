// Return codes in words: one row for each code of the public header, and an answer for every number.
#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "krvstats.h"
#include "krvstats_ext.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

// Code and name of each `#define KRVSTAT_NAME (-100)` of the public header.
std::map<int, std::string> codesOfTheHeader()
{
    const std::string header = readWholeFile(KRVSTATS_PUBLIC_HEADER);
    const std::regex definition("#define (KRVSTAT_[A-Z_]+) \\(?(-?[0-9]+)\\)?");
    std::map<int, std::string> codes;
    for (std::sregex_iterator each(header.begin(), header.end(), definition), end; each != end; ++each) {
        const bool fresh = codes.emplace(std::atoi((*each)[2].str().c_str()), (*each)[1].str()).second;
        EXPECT_TRUE(fresh) << (*each)[1] << " has the number of another code";
    }
    return codes;
}

} // namespace

TEST(ReturnCodes, OfThePublicHeaderAreAllNamed)
{
    const std::map<int, std::string> codes = codesOfTheHeader();
    ASSERT_EQ(34u, codes.size()) << "0 and 33 negative codes";
    EXPECT_EQ("KRVSTAT_OK", codes.at(0));
    EXPECT_EQ(-136, codes.begin()->first);
    for (const auto& [rc, name] : codes) EXPECT_EQ(name, getReturnCodeName(rc));
}

TEST(ReturnCodes, EachHaveASentenceOfTheirOwn)
{
    std::set<std::string> sentences = {getReturnCodeText(-112)};
    for (const auto& [rc, name] : codesOfTheHeader()) {
        const std::string sentence = getReturnCodeText(rc);
        EXPECT_TRUE(sentences.insert(sentence).second) << name << ": " << sentence;
        ASSERT_GT(sentence.size(), 10u) << name;
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(sentence.front()))) << sentence;
        EXPECT_EQ('.', sentence.back()) << sentence;
        EXPECT_EQ(std::string::npos, sentence.find("KRVSTAT")) << "for people: " << sentence;
        EXPECT_EQ(std::string::npos, sentence.find('\n')) << sentence;
    }
}

TEST(ReturnCodes, SentencesAreToTheLetter)
{
    const std::map<int, std::string> sentences = {
        {KRVSTAT_OK, "The call succeeded."},
        {KRVSTAT_NULL_GATEWAY_TOKEN, "The gateway token is NULL."},
        {KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, "The gateway token is not an open connection of this process."},
        {KRVSTAT_GATEWAY_COMMS_FAILED, "The gateway could not be reached or refused the request."},
        {KRVSTAT_NULL_BUFFER, "An internal output buffer is NULL."},
        {KRVSTAT_INVALID_TRACE_LEVEL, "The value is out of range: trace levels are 0 to 5."},
        {KRVSTAT_NULL_PROTOCOL_VERSION_POINTER, "The pointer for the protocol version is NULL."},
        {KRVSTAT_RESULT_SET_NOT_USER_OWNED,
            "Only copied result sets may be freed; a connection's own goes with its connection."},
        {KRVSTAT_INVALID_PORT, "The port is outside 1 to 65535."},
        {KRVSTAT_NULL_GATEWAY_TOKEN_POINTER, "The pointer to the gateway token is NULL."},
        {KRVSTAT_NULL_OUTPUT_POINTER, "An output pointer is NULL."},
        {KRVSTAT_NO_RESULT_BUFFER, "The result-set buffer is gone; the connection may have been closed."},
        {KRVSTAT_OUT_OF_MEMORY, "There was not enough memory."},
        {KRVSTAT_RESULT_SET_EMPTY, "There is no further data in the result set."},
        {KRVSTAT_GTL_CORRUPT, "The list of open connections is damaged or too long."},
        {KRVSTAT_INVALID_RESULT_SET_OWNER, "The owner of a result set was not recognised."},
        {KRVSTAT_CONNECT_FAILED, "The connection to the gateway failed, or the gateway did not accept the greeting."},
        {KRVSTAT_WRONG_RESULT_SET_CONTENT, "The result set holds another kind of data than asked for."},
        {KRVSTAT_LOCK_INIT_FAILED, "The trace lock could not be initialised."},
        {KRVSTAT_GATEWAY_PROTOCOL_ERROR,
            "The exchange with the gateway failed: it closed the connection, sent a bad reply, or did not answer in time."},
        {KRVSTAT_PID_MISMATCH, "The handle belongs to another process."},
        {KRVSTAT_TID_MISMATCH, "The handle belongs to another thread."},
        {KRVSTAT_NULL_RESULT_SET_POINTER, "The pointer to the result set is NULL."},
        {KRVSTAT_NULL_QUERY_ARGUMENT, "The text with ids is NULL."},
        {KRVSTAT_NULL_RESULT_SET_TOKEN, "The result set is NULL."},
        {KRVSTAT_NULL_ID_DATA_POINTER, "The pointer to the id record is NULL."},
        {KRVSTAT_NULL_STAT_DATA_POINTER, "The pointer to the statistic record is NULL."},
        {KRVSTAT_TRACE_FILE_OPEN_FAILED, "The trace file could not be opened for append."},
        {KRVSTAT_ID_QUERY_FAILED, "No query text could be built from the result set."},
        {KRVSTAT_HOST_NOT_RESOLVED, "The host name could not be resolved."},
        {KRVSTAT_NULL_HOSTNAME, "The host name is NULL."},
        {KRVSTAT_CONNECT_TIMEOUT, "The connection did not complete in time."},
        {KRVSTAT_CONNECTION_REFUSED, "Nobody listens at that address and port."},
        {KRVSTAT_NETWORK_UNREACHABLE, "The network is unreachable."},
    };
    EXPECT_EQ(codesOfTheHeader().size(), sentences.size());
    for (const auto& [rc, sentence] : sentences) EXPECT_EQ(sentence, getReturnCodeText(rc));
    EXPECT_STREQ("This is not a return code of krvstats.", getReturnCodeText(1));
}

TEST(ReturnCodes, ThatAreNoneAreSaidToBeUnknown)
{
    const std::map<int, std::string> codes = codesOfTheHeader();
    const std::string sentence = getReturnCodeText(INT_MIN);
    EXPECT_FALSE(sentence.empty());
    for (int rc = -2000; rc <= 2000; ++rc) {
        if (codes.contains(rc)) continue;
        EXPECT_STREQ("KRVSTAT_UNKNOWN", getReturnCodeName(rc)) << rc;
        EXPECT_EQ(sentence, getReturnCodeText(rc)) << rc;
    }
    for (int rc : {INT_MIN, INT_MIN + 1, INT_MAX, 61444, -32768, 65536}) {
        EXPECT_STREQ("KRVSTAT_UNKNOWN", getReturnCodeName(rc)) << rc;
        EXPECT_EQ(sentence, getReturnCodeText(rc)) << rc;
    }
    for (int retired : {-112, -114, -117, -120}) EXPECT_STREQ("KRVSTAT_UNKNOWN", getReturnCodeName(retired));
}

TEST(ReturnCodes, AreTheSameTextsEachTime)
{
    for (int rc : {0, -135, 7}) {
        EXPECT_EQ(getReturnCodeName(rc), getReturnCodeName(rc));
        EXPECT_EQ(getReturnCodeText(rc), getReturnCodeText(rc));
    }
}

#if __has_include(KRVSTATS_RETURN_CODES_DOCUMENT)

TEST(ReturnCodes, InTheDocumentAreThoseOfTheTable)
{
    const std::string document = readWholeFile(KRVSTATS_RETURN_CODES_DOCUMENT);
    std::set<std::string> known = {"KRVSTAT_UNKNOWN"};
    for (const auto& [rc, name] : codesOfTheHeader()) {
        known.insert(name);
        const std::regex row("(^|[^A-Z_])" + name + "([^A-Z_]|$)");
        EXPECT_TRUE(std::regex_search(document, row)) << "the document does not name " << name;
        EXPECT_NE(std::string::npos, document.find(std::to_string(rc))) << name;
    }
    const std::regex anyName("KRVSTAT_[A-Z_]*[A-Z]");
    for (std::sregex_iterator each(document.begin(), document.end(), anyName), end; each != end; ++each)
        EXPECT_TRUE(known.contains(each->str())) << each->str() << " is no return code";
}

#endif
