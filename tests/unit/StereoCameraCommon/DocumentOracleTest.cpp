// SPDX-License-Identifier: Apache-2.0
// Settings and calibration files against OpenCV's own storage layer: what it reads is read here, with the same
// values; what it refuses, or does not survive, is refused.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/StereoCameraCommon/Storage.hpp"
#include "tests/support/StorageOracle.hpp"
#include "tests/unit/StereoCameraCommon/RandomDocuments.hpp"

using namespace stereo::test;

namespace {

std::unique_ptr<cv::FileStorage> openGuarded(const std::string& path) {
  return stereo::openForReading(path, stereo::EmptyFile::malformed);
}

struct Comparison {
  std::size_t read = 0;
  std::size_t refused = 0;
  std::size_t lost = 0;
};

Comparison compare(const std::vector<std::string>& documents) {
  const std::vector<Reading> bare = readInChildren(documents, "document", openBare);
  const std::vector<Reading> guarded = readInChildren(documents, "document", openGuarded);
  Comparison comparison;
  int differences = 0;
  for (std::size_t k = 0; k < documents.size(); ++k) {
    ++(bare[k].fate == Fate::read   ? comparison.read
       : bare[k].fate == Fate::lost ? comparison.lost
                                    : comparison.refused);
    const Reading expected = bare[k].fate == Fate::read ? bare[k] : Reading{Fate::refused, ""};
    if (guarded[k] != expected && ++differences <= 5) {
      ADD_FAILURE() << "by itself " << static_cast<int>(bare[k].fate) << ' ' << bare[k].values << "\nguarded "
                    << static_cast<int>(guarded[k].fate) << ' ' << guarded[k].values << "\ndocument " << k << ":\n"
                    << testing::PrintToString(documents[k]);
    }
  }
  EXPECT_EQ(differences, 0);
  return comparison;
}

class DocumentOracle : public testing::TestWithParam<Syntax> {};

std::string nameOfSyntax(const testing::TestParamInfo<Syntax>& instance) {
  return instance.param == Syntax::yaml ? "yaml" : instance.param == Syntax::xml ? "xml" : "json";
}

INSTANTIATE_TEST_SUITE_P(Syntax, DocumentOracle, testing::Values(Syntax::yaml, Syntax::xml, Syntax::json),
                         nameOfSyntax);

}  // namespace

TEST_P(DocumentOracle, LegalDocumentsAreRead) {
  std::vector<std::string> documents;
  for (unsigned int seed = 0; seed < 1000; ++seed) {
    documents.push_back(randomDocument(GetParam(), seed));
  }
  const Comparison seen = compare(documents);
  EXPECT_GT(seen.read, documents.size() * 9 / 10);
}

TEST_P(DocumentOracle, ChangedDocumentsAreReadOrRefused) {
  std::vector<std::string> documents;
  for (unsigned int seed = 0; seed < 2000; ++seed) {
    documents.push_back(changedDocument(randomDocument(GetParam(), seed % 500), seed));
  }
  const Comparison seen = compare(documents);
  EXPECT_GT(seen.read, documents.size() / 10);
  EXPECT_GT(seen.refused, documents.size() / 10);
}

// A guard that accepts everything fails here; one that refuses everything fails with the documents above.
TEST(DocumentOracleAlone, WhatOpenCvDoesNotSurviveIsRefused) {
  const std::string yaml = "%YAML:1.0\n---\n";
  const std::string xml = "<?xml version=\"1.0\"?>\n<opencv_storage>\n";
  const std::string endless = "MjE0NzQ4MzY0N2QyMTQ3NDgzNjQ3ZCAgAAAAAAAA8D8=";  // "2147483647d2147483647d": -2 elements
  const std::string untyped = "ICAgICAgICAgICAgICAgICAgICAgICAgAAAAAAAA8D8=";
  const std::vector<std::string> documents = {
      yaml + "A: 1\n...\n- 5\n",
      yaml + "   A: 1\nxxx- 5\n",
      yaml + "A: { : 5 }\n",
      yaml + "A: " + std::string(200'000, '[') + "\n",
      yaml + "A: !!binary |\n   " + endless + "\n",
      yaml + "A: !!binary |\n   " + untyped + "\n",
      xml + "<A b=",
      xml + "<A type_id=\n",
      xml + "<A type_id=\"str\">x</A></opencv_storage>\n",
      xml + "<A type_id=\"binary\">\n" + endless + "\n</A></opencv_storage>\n",
      "{\"A\":\"$base64$" + endless + "\"}",
      "{\"A\":\"$base64$" + untyped + "\"}",
      "{\"A\":" + std::string(200'000, '[') + "}",
  };
  const Comparison seen = compare(documents);
  EXPECT_EQ(seen.lost, documents.size());
}
