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
