// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

// What the targets share that have the camera read files.

namespace stereo::fuzz {

/// The three syntaxes, as file name extensions.
constexpr const char* extensions[] = {"yml", "xml", "json"};

/// A file in memory, of this process alone, that the camera can load and save by name.
class Document {
public:
  explicit Document(const std::string& name);

  const std::string& path() const { return m_path; }
  /// Makes an input a file, and returns its path. What is behind a first byte 'z' is compressed, what is behind a 'g'
  /// is taken for a compressed file's bytes; a file of another name, ending with ".gz", gets either.
  std::string write(const std::uint8_t* data, std::size_t size) const;
  std::string read() const;

private:
  std::string m_path;
};

/// Takes what goes to standard error through `std::cerr` while it lives.
class Messages : public std::streambuf {
public:
  Messages();
  ~Messages() override;
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;

  const std::string& text() const { return m_text; }

protected:
  int overflow(int character) override;
  std::streamsize xsputn(const char* text, std::streamsize length) override;

private:
  std::streambuf* m_before;
  std::string m_text;
};

/// How often the library had the disks synchronised so far. It is not done here: it takes a shell and milliseconds.
int syncsAskedFor();

/// Changes a document as somebody might who knows what documents look like: other numbers, other names, lines gone,
/// doubled or moved, the end cut off. Or, half of the time, as bytes that mean nothing. See LLVMFuzzerCustomMutator.
std::size_t mutateDocument(std::uint8_t* data, std::size_t size, std::size_t mostBytes, unsigned int seed,
                           const std::vector<std::string_view>& names);

}  // namespace stereo::fuzz
