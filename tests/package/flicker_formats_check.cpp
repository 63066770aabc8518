// Runs the byte tables of a document through the converter: rows of packing, width, bytes, samples.
// Usage: flicker_formats_check docs/flicker-formats.md
#include <hyl/internal/sample_converter.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using hyl::v2::FlickerFormatSampleWidth;
using hyl::v2::spectral::SampleConverter;

struct Row {
  std::string packing;
  std::string bits;
  std::string chunk;
  std::string samples;
};

/// The text between backticks, or the whole cell without its blanks.
std::string Content(std::string cell) {
  std::erase(cell, '`');
  const size_t first = cell.find_first_not_of(' ');
  const size_t last = cell.find_last_not_of(' ');
  return first == std::string::npos ? "" : cell.substr(first, last - first + 1);
}

/// The row that a line holds; without a packing if it holds none.
Row ParseRow(const std::string& line) {
  std::istringstream cells(line);
  std::string cell;
  std::vector<std::string> found;
  while (std::getline(cells, cell, '|')) {
    found.push_back(cell);
  }
  const bool is_row = found.size() == 5 && found[1].starts_with(" `");
  return is_row ? Row{Content(found[1]), Content(found[2]), Content(found[3]), Content(found[4])}
                : Row{};
}

/// Configures the converter as, for instance, "uncompressed-3 little msb 4" says.
void Configure(SampleConverter& converter, const std::string& packing) {
  std::istringstream words(packing);
  std::string word;
  words >> word;
  auto width = FlickerFormatSampleWidth::kCompressed1;
  if (word == "16-bits-in-2") {
    width = FlickerFormatSampleWidth::k16BitsIn2;
  } else if (word.starts_with("uncompressed-")) {
    width = static_cast<FlickerFormatSampleWidth>(word.back() - '0');
  }
  bool little_endian = true;
  int msb = 0;
  int lsb = 0;
  while (words >> word) {
    if (word == "big") {
      little_endian = false;
    } else if (word == "msb") {
      words >> msb;
    } else if (word == "lsb") {
      words >> lsb;
    }
  }
  converter.Configure(width, little_endian, static_cast<uint8_t>(msb), static_cast<uint8_t>(lsb));
}

std::vector<uint8_t> Bytes(const std::string& text) {
  std::istringstream words(text);
  std::vector<uint8_t> bytes;
  for (unsigned value = 0; words >> std::hex >> value;) {
    bytes.push_back(static_cast<uint8_t>(value));
  }
  return bytes;
}

class Checker {
 public:
  void Check(const Row& row) {
    const bool goes_on = row.packing.ends_with(" next");
    if (!goes_on) {
      converter_ = SampleConverter();
      converter_.SetOutput(buffer_.data(), buffer_.size(),
                           static_cast<uint8_t>(std::stoi(row.bits)));
      Configure(converter_, row.packing);
    }
    const std::string got = Convert(Bytes(row.chunk), !goes_on);
    ++rows_;
    if (got != row.samples) {
      ++wrong_;
      std::printf("%s, %s bits, %s: the document says %s, the library %s\n", row.packing.c_str(),
                  row.bits.c_str(), row.chunk.c_str(), row.samples.c_str(), got.c_str());
    }
  }

  int rows() const { return rows_; }
  int wrong() const { return wrong_; }

 private:
  std::string Convert(const std::vector<uint8_t>& chunk, bool restart) {
    if (!converter_.Convert(chunk.data(), chunk.size(), restart ? 1 : 0)) {
      return "unreadable";
    }
    std::string samples;
    for (size_t i = 0; i < converter_.out_count_; ++i) {
      samples += (i == 0 ? "" : " ") + std::to_string(buffer_[i]);
    }
    return samples;
  }

  std::vector<int32_t> buffer_ = std::vector<int32_t>(64);
  SampleConverter converter_;
  int rows_ = 0;
  int wrong_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::ifstream document(argc == 2 ? argv[1] : "");
  Checker checker;
  for (std::string line; std::getline(document, line);) {
    const Row row = ParseRow(line);
    if (!row.packing.empty()) {
      checker.Check(row);
    }
  }
  std::printf("%d rows, %d wrong\n", checker.rows(), checker.wrong());
  return checker.rows() > 0 && checker.wrong() == 0 ? 0 : 1;
}
