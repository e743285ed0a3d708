#include <ov/uri.h>

#include <gtest/gtest.h>

namespace {

using ov::orveltools::uri::LtUri;
namespace Scheme = ov::orveltools::uri::Scheme;

const std::string takenDuringInitialisation = Scheme::YouTubeV4;

std::string schemeOf(const std::string& uri) { return LtUri(uri).getScheme(); }

TEST(Uri, NamesTheSchemesThatThePlatformKnows) {
    EXPECT_EQ(Scheme::File, "file");
    EXPECT_EQ(Scheme::Fsl2, "fsl2");
    EXPECT_EQ(Scheme::Http, "http");
    EXPECT_EQ(Scheme::Https, "https");
    EXPECT_EQ(Scheme::Miracast, "miracast");
    EXPECT_EQ(Scheme::External, "external");
    EXPECT_EQ(Scheme::YouTube, "youtube");
    EXPECT_EQ(Scheme::YouTubeV4, "youtubev4");
    EXPECT_EQ(Scheme::Rtp, "rtp");
}

TEST(Uri, HasItsSchemesReadyDuringStaticInitialisation) { EXPECT_EQ(takenDuringInitialisation, "youtubev4"); }

TEST(Uri, FindsTheSchemeBeforeTheFirstColon) {
    EXPECT_EQ(schemeOf("http://example.org:8080/a:b"), Scheme::Http);
    EXPECT_EQ(schemeOf("rtp:"), Scheme::Rtp);
    EXPECT_EQ(schemeOf("x:"), "x");
    EXPECT_EQ(schemeOf("a1+b-c.d:e"), "a1+b-c.d");
}

TEST(Uri, LowersTheCaseOfTheSchemeOnly) {
    const LtUri uri("HtTpS://Example.ORG/A");
    EXPECT_EQ(uri.getScheme(), Scheme::Https);
    EXPECT_EQ(uri.getUri(), "HtTpS://Example.ORG/A");
}

TEST(Uri, HasNoSchemeWhenTheGrammarFindsNone) {
    for (const char* uri : {"", ":", ":http", "http", "/http:", "1http://a", "+a:b", "ht tp://a", " http://a",
                            "ht_tp:a", "//a:80/", "a/b:c", "?a:b", "#a:b"})
        EXPECT_EQ(schemeOf(uri), "") << uri;
}

TEST(Uri, AcceptsAnyBytes) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        EXPECT_EQ(schemeOf(one + ":").size(), letter ? 1U : 0U) << byte;
        EXPECT_EQ(LtUri(one + "\xFF:" + one).getUri(), one + "\xFF:" + one);
    }
    EXPECT_EQ(schemeOf(std::string("a\0b:", 4)), "");
    EXPECT_EQ(schemeOf("\xC3\xA4:"), "");
    const std::string megabyte(1 << 20, 'A');
    EXPECT_EQ(schemeOf(megabyte), "");
    EXPECT_EQ(schemeOf(megabyte + ":"), std::string(1 << 20, 'a'));
}

} // namespace
