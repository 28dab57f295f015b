// SPDX-License-Identifier: Apache-2.0
#include "DocumentGuard.hpp"

#include <string>

#include <gtest/gtest.h>

using stereo::core::maxNesting;
using stereo::core::safeToParse;

namespace {

std::string times(int count, const std::string& piece) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += piece;
  }
  return text;
}

std::string stairs(int steps) {
  std::string text = "%YAML:1.0\n---\n";
  for (int i = 0; i < steps; ++i) {
    text += std::string(static_cast<std::size_t>(i), ' ') + "a:\n";
  }
  return text + std::string(static_cast<std::size_t>(steps), ' ') + "5\n";
}

}  // namespace

TEST(SafeToParse, LetsOrdinaryDocumentsThrough) {
  EXPECT_TRUE(safeToParse("%YAML:1.0\n---\nA: !!opencv-matrix\n   rows: 1\n   cols: 1\n   dt: d\n   data: [ 1. ]\n"));
  EXPECT_TRUE(safeToParse("{\n  \"A\": { \"rows\": 1, \"data\": [ 1.0, 2.0 ] }\n}\n"));
  EXPECT_TRUE(
      safeToParse("<?xml version=\"1.0\"?>\n<opencv_storage>\n<A type_id=\"opencv-matrix\">\n  <rows>1</rows>\n"
                  "  <!-- a > b <c -->\n  <data>\n    1.</data></A>\n<empty></empty>\n</opencv_storage>\n"));
}

TEST(SafeToParse, RefusesWhatNoParserTakes) {
  for (const char* const text : {"", "\n", "no document at all", "%YAM", "\xEF\xBB\xBF{}", " {}", "[]"}) {
    EXPECT_FALSE(safeToParse(text)) << text;
  }
}

TEST(SafeToParse, RefusesNestingBeyondTheLimit) {
  const auto yaml = [](int levels) { return "%YAML:1.0\n---\nA: " + times(levels, "[") + times(levels, "]") + "\n"; };
  EXPECT_TRUE(safeToParse(yaml(maxNesting - 1)));  // the root is one, too
  EXPECT_FALSE(safeToParse(yaml(maxNesting)));
  const auto json = [](int levels) { return "{\"A\":" + times(levels, "[") + times(levels, "]") + "}"; };
  EXPECT_TRUE(safeToParse(json(maxNesting - 1)));
  EXPECT_FALSE(safeToParse(json(maxNesting)));
  EXPECT_TRUE(safeToParse("{ \"A\": [" + times(10000, "[], {}, ") + "] }"));
  EXPECT_TRUE(safeToParse(stairs(maxNesting)));
  EXPECT_FALSE(safeToParse(stairs(maxNesting + 1)));
  const std::string dashes = "%YAML:1.0\n---\nA:\n  ";
  EXPECT_TRUE(safeToParse(dashes + times(maxNesting - 1, "- ") + "5\n"));
  EXPECT_FALSE(safeToParse(dashes + times(maxNesting, "- ") + "5\n"));
  const auto xml = [](int levels) {
    return "<?xml version=\"1.0\"?>\n<opencv_storage>" + times(levels, "<a>") + times(levels, "</a>") +
           "</opencv_storage>\n";
  };
  EXPECT_TRUE(safeToParse(xml(maxNesting - 1)));
  EXPECT_FALSE(safeToParse(xml(maxNesting)));
}

// Of comments and strings with any content.
TEST(SafeToParse, CountsNoBracketsThatAreText) {
  const std::string odd = times(200, "[{");
  EXPECT_TRUE(safeToParse("%YAML:1.0\n---\n# " + odd + "\nA: \"" + odd + "\"\nB: '" + odd + "'\nC: x" + odd + "\n"));
  EXPECT_TRUE(safeToParse("{ // " + odd + "\n/* " + odd + "*/ \"A\": \"" + odd + "\" }"));
  EXPECT_TRUE(safeToParse("<?xml version=\"1.0\"?>\n<opencv_storage><!-- " + times(200, "<a>") +
                          " --><A>1</A></opencv_storage>\n"));
  std::string comments = "%YAML:1.0\n---\nA: 5\n";
  for (std::size_t indent = 0; indent < 200; ++indent) {
    comments += std::string(indent, ' ') + "# deeper\n";
  }
  EXPECT_TRUE(safeToParse(comments));
}

TEST(SafeToParse, LetsOddButLegalTextsThrough) {
  const std::string yaml = "%YAML:1.0\n---\n";
  for (const char* const text : {"# binary, : {: ,: [ {\nA: 5\n", "A: \"binary, : {: ,: [ {\"\n",
                                 "A: 'it''s, : binary'\n", "A: x!binary\n", "A: \"!binary \\\" # \"\n"}) {
    EXPECT_TRUE(safeToParse(yaml + text)) << text;
  }
  for (const char* const text :
       {"{ \"A\": \"type_id=\\\"binary\\\" , : {:\" }", "{ /* , : */ \"{:\" : 5 // }\n}", "{ \"A\": \"x$base64$\" }"}) {
    EXPECT_TRUE(safeToParse(text)) << text;
  }
  const std::string xml = "<?xml version=\"1.0\"?>\n<opencv_storage>\n<!-- \"binary\" --><A>\"!binary\"</A>\n";
  for (const char* const end : {"</opencv_storage>", "</opencv_storage >", "</opencv_storage\n>\n",
                                "</opencv_storage>\n<!-- </a> -->\n", "</opencv_storage> <!-- cut off"}) {
    EXPECT_TRUE(safeToParse(xml + end)) << end;
  }
}

TEST(SafeToParse, RefusesXmlThatDoesNotEndWithItsRoot) {
  const std::string whole =
      "<?xml version=\"1.0\"?>\n<opencv_storage>\n<A type_id=\"opencv-matrix\">1</A>\n</opencv_storage>";
  EXPECT_TRUE(safeToParse(whole));
  EXPECT_TRUE(safeToParse(whole + " \r\n"));
  const std::size_t header = whole.find('\n');  // which the parser takes for a document by itself
  for (std::size_t length = 5; length < whole.size(); ++length) {
    EXPECT_EQ(safeToParse(whole.substr(0, length)), length == header) << length;
  }
  EXPECT_FALSE(safeToParse("<?xml version=\"1.0\"?>\n<opencv_storage>\n<a b=\">\" type_id="));
  EXPECT_FALSE(safeToParse("<?xml version=\"1.0\" encoding=\">\" b="));
}

TEST(SafeToParse, RefusesMissingNames) {
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\n: 5\n"));
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\nA:\n   : 5\n"));
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\nA: { : 5 }\n"));
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\nA: { B:1, :5 }\n"));
  EXPECT_TRUE(safeToParse("{ \"A\"\n: 5 }"));
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\nA: 'it\"s'\nB: {C: 'x\"', : 4}\n"));
  EXPECT_TRUE(safeToParse("%YAML:1.0\n---\nA: \"a: b, c: d\"\nB: 5\n"));
}

TEST(SafeToParse, LetsSeveralStreamsThrough) {
  const std::string head = "%YAML:1.0\n---\n";
  EXPECT_TRUE(safeToParse(head + "A: 5\n...\n"));
  EXPECT_TRUE(safeToParse(head + "A: 5\n...\n---\nB: 5\n"));
  EXPECT_TRUE(safeToParse(head + "A: 5\n...\n\n# more\n%YAML:1.0\n--- # now\n   B: 5\n   C:\n     - -5\n...\n"));
  EXPECT_TRUE(safeToParse(head + "- 5\n- -5\n...\n"));
  EXPECT_TRUE(safeToParse("%YAML:1.0\nA: -5\n"));
  EXPECT_TRUE(safeToParse(head + "!!map\nA: 5\nB: 5\n...\n---\n!!map\nC: 5\n"));
  EXPECT_TRUE(safeToParse(head + "%A: 5\n%B: 5\n...\n%YAML:1.0\n---\nC: 5\n"));
  EXPECT_TRUE(safeToParse(head + "   A: 5\n# whose place is no matter\n\n   B: -5\n"));
}

TEST(SafeToParse, LetsCollectionsInBracketsThrough) {
  const std::string head = "%YAML:1.0\n---\n";
  for (const std::string end : {"", "\n", "\n...\n", "\n...\n---\nB: -5\n", " # end\n"}) {
    EXPECT_TRUE(
        safeToParse(head + "{ A: !!opencv-matrix { rows: 1, cols: 2,\n dt: \"d\", data: [ -1., -.5 ] } }" + end))
        << end;
    EXPECT_TRUE(safeToParse(head + "[ -5, [ 6, '}' ], {} ]" + end)) << end;
    EXPECT_TRUE(safeToParse(head + "{ A: '\\', B: \"\\\"}\" }" + end)) << end;
    EXPECT_TRUE(safeToParse(head + "{ A: 5 # }\n }" + end)) << end;
    EXPECT_TRUE(safeToParse(head + "!!map { A: 5 }" + end)) << end;
  }
}

// The parser would loop forever at a dash that it takes for the start of a stream.
TEST(SafeToParse, RefusesStreamsThatBeginOrEndInNoKnownWay) {
  const std::string head = "%YAML:1.0\n---\n";
  for (const char* const text : {"A: 5\n...\n- 5\n",
                                 "A: 5\n...\n# \n - 5\n",
                                 "A: 5\n...- 5\n",
                                 "A: 5\n... - 5\n",
                                 "...\n- 5\n",
                                 "...- 5\n",
                                 "   A: 5\nxx - 5\n",
                                 "   A: 5\n%YA-5\n",
                                 "   A: 5\n---\n- 5\n",
                                 "  - 5\nxxx- 5\n",
                                 "- 5\nxxx- 5\n",
                                 "{ A: 5 }\nxxx- 5\n",
                                 "{ A: 5 } xxx- 5\n",
                                 "{ A: x{y }\nxx- 5 }\n",
                                 "{ A: it's }\nxx- 5 ', B: 5 }\n",
                                 "!!map { A: 5 }\nxxx- 5\n",
                                 "--- { A: 5 }\nxxx- 5\n",
                                 "  %A: 5\nxxx- 5\n",
                                 "%A: 5\n...\n- 5\n",
                                 "!!map\n  %A: 5\nxxx- 5\n",
                                 "  ---\nA: 5\nxx- 5\n",
                                 "!!map\n   !a:5\nxxx- 5\n",
                                 "!b\n   !a:[5]\nxxx- 5\n",
                                 "A: 5\n...\n--- !a\n   !b:5\nxxx- 5\n"}) {
    EXPECT_FALSE(safeToParse(head + text)) << text;
  }
}

TEST(SafeToParse, RefusesZeros) {
  using namespace std::string_view_literals;
  EXPECT_FALSE(safeToParse("%YAML:1.0\n---\nA: 5\0\n"sv));
  EXPECT_FALSE(safeToParse("{ \"A\": 5\0 }"sv));
  EXPECT_FALSE(safeToParse("<?xml version=\0\"1.0\"?>\n<opencv_storage>\n</opencv_storage>\n"sv));
}

TEST(SafeToParse, RefusesBase64WithoutTypes) {
  // "d" and 23 blanks, then a number; "2if" likewise; types that do not exist; blanks alone; too short.
  const std::string data = "AAAAAAAA8D8=";
  struct Case {
    std::string text;
    bool isSafe;
  };
  for (const Case& c :
       {Case{"ZCAgICAgICAgICAgICAgICAgICAgICAg", true}, Case{"MmlmICAgICAgICAgICAgICAgICAgICAg", true},
        Case{"RGVwdGhtb2RlICAgICAgICAgICAgICAg", false}, Case{"ICAgICAgICAgICAgICAgICAgICAgICAg", false},
        Case{"MiAgICAgICAgICAgICAgICAgICAgICAg", false}, Case{"ZCAg", false}, Case{"", false}}) {
    EXPECT_EQ(safeToParse("{ \"A\": { \"data\": \"$base64$" + c.text + data + "\" } }"), c.isSafe) << c.text;
    EXPECT_EQ(safeToParse("%YAML:1.0\n---\nA: !!opencv-matrix\n   data: !!binary |\n     " + c.text + data + "\n"),
              c.isSafe)
        << c.text;
    EXPECT_EQ(safeToParse("<?xml version=\"1.0\"?>\n<opencv_storage><A><data type_id=\"binary\">\n  " + c.text + data +
                          "\n</data></A></opencv_storage>\n"),
              c.isSafe)
        << c.text;
  }
  EXPECT_TRUE(safeToParse("%YAML:1.0\n---\nA: binary\nbinary: 5\n"));
}
