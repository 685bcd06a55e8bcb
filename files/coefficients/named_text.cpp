// Texts that name their arrays: Octave's saves, MATLAB's .fcf, and assignments of MATLAB and
// Python.
#include <algorithm>
#include <cctype>

#include "coefficients/parse.h"

namespace jurn {
namespace {

const char* const kBetween = " \t\r\v\f,";

/** The name of an Octave array, "# name: b", or nothing. */
std::string_view octave_name(std::string_view line) {
  constexpr std::string_view start = "# name: ";
  return line.substr(0, start.size()) == start ? line.substr(start.size()) : std::string_view();
}

/** The name behind which MATLAB's filter designer lists numbers: "Numerator:" or "SOS Matrix:". */
std::string designer_name(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return {};
  const std::string name = lower(line.substr(0, colon));
  if (name == "numerator" || name == "denominator") return name;
  if (name == "sos matrix") return "sos";
  if (name == "scale values") return "scalevalues";
  return {};
}

/** "b = [0.5, 0.25" begins an assignment; `rest` is what follows the equals sign. */
std::string assigned_name(std::string_view line, std::string_view* rest) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return {};
  const std::vector<std::string_view> words = split(line.substr(0, equals), kBetween);
  *rest = line.substr(equals + 1);
  const std::size_t bracket = rest->find('[');
  const bool is_name =
      words.size() == 1 && std::all_of(words[0].begin(), words[0].end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
      });
  return is_name && bracket != std::string_view::npos ? std::string(words[0]) : std::string();
}

/** Collects rows of numbers. */
class Table {
 public:
  explicit Table(std::string name) { array_.name = std::move(name); }

  void add(const std::string& path, int line, std::string_view text) {
    for (const std::string_view word : split(text, kBetween)) {
      array_.values.push_back(parse_number(path, line, word));
      ++row_;
    }
  }
  /** Ends a row. Rows of different lengths, as of designers that fill up, become one vector. */
  void end_row() {
    if (row_ == 0) return;
    uneven_ = uneven_ || (rows_ > 0 && row_ != columns_);
    columns_ = row_;
    ++rows_;
    row_ = 0;
  }
  void finish(std::vector<Array>* arrays) {
    end_row();
    if (array_.values.empty()) return;
    const bool vector = uneven_ || columns_ == 1;
    array_.rows = vector ? 1 : rows_;
    array_.columns = vector ? array_.values.size() : columns_;
    arrays->push_back(std::move(array_));
  }

 private:
  Array array_;
  std::size_t row_ = 0, rows_ = 0, columns_ = 0;
  bool uneven_ = false;
};

/** Adds what stands in brackets; returns whether the outermost is still open. */
bool add_bracketed(const std::string& path, int line, std::string_view text, int* depth,
                   Table* table) {
  std::string_view number;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of("[];", at), text.size());
    number = text.substr(at, end - at);
    if (const std::size_t dots = number.find("..."); dots != std::string_view::npos)
      number = number.substr(0, dots);  // the row goes on in the next line
    table->add(path, line, number);
    if (end == text.size()) break;
    if (text[end] != '[') table->end_row();
    *depth += text[end] == '[' ? 1 : text[end] == ']' ? -1 : 0;
    if (*depth <= 0) return false;
    at = end + 1;
  }
  return true;
}

std::string from_utf16(std::string_view bytes) {
  const auto mark = [&](char first, char second) {
    return bytes.size() >= 2 && bytes[0] == first && bytes[1] == second;
  };
  const bool little_mark = mark('\xff', '\xfe'), big_mark = mark('\xfe', '\xff');
  const bool marked = little_mark || big_mark;
  const std::size_t seen = std::min<std::size_t>(bytes.size(), 64) & ~std::size_t{1};
  bool little = !big_mark, big = !little_mark;
  for (std::size_t i = marked ? 2 : 0; i + 1 < seen && !marked; i += 2) {
    const auto is_text = [](char c) { return (c >= ' ' && c <= '~') || (c >= '\t' && c <= '\r'); };
    little = little && is_text(bytes[i]) && bytes[i + 1] == '\0';
    big = big && is_text(bytes[i + 1]) && bytes[i] == '\0';
  }
  if (!marked && (seen < 4 || little == big)) return std::string(bytes);
  std::string text;
  for (std::size_t i = marked ? 2 : 0; i + 1 < bytes.size(); i += 2) {
    const char low = bytes[i + (little ? 0 : 1)], high = bytes[i + (little ? 1 : 0)];
    text += high == '\0' && static_cast<unsigned char>(low) < 128 ? low : '?';
  }
  return text;
}

}  // namespace

bool is_named_text(std::string_view text) {
  const std::vector<std::string_view> lines = lines_of(text);
  std::string_view rest;
  return std::any_of(lines.begin(), lines.end(), [&](std::string_view line) {
    return !octave_name(line).empty() || !designer_name(line).empty() ||
           !assigned_name(line.substr(0, line.find_first_of("#%")), &rest).empty();
  });
}

std::vector<Array> parse_named_text(const std::string& path, std::string_view text) {
  std::vector<Array> arrays;
  const std::vector<std::string_view> lines = lines_of(text);
  Table table("");
  int depth = 0;
  bool open = false;  // a list without brackets
  const auto begin = [&](std::string name) {
    table.finish(&arrays);
    table = Table(std::move(name));
  };
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    const std::string_view content = lines[i].substr(0, lines[i].find_first_of("#%"));
    std::string_view rest = content;
    if (depth == 0) {
      std::string name(octave_name(lines[i]));
      if (name.empty()) name = designer_name(content);
      if (!name.empty()) {
        begin(std::move(name));
        open = true;
        continue;
      }
      name = assigned_name(content, &rest);
      if (name.empty()) {
        const bool words = std::any_of(content.begin(), content.end(), [](char c) {
          return std::isalpha(static_cast<unsigned char>(c)) && c != 'e' && c != 'E';
        });
        if (open && !words) {
          table.add(path, line, content);
          table.end_row();
        } else if (words) {
          open = false;  // text that Octave saved, or code
        }
        continue;
      }
      open = false;
      begin(std::move(name));
      rest = rest.substr(rest.find('['));
    }
    if (add_bracketed(path, line, rest, &depth, &table)) {
      if (rest.find("...") == std::string_view::npos && depth == 1 &&
          content.find_last_not_of(kBetween) != std::string_view::npos &&
          content[content.find_last_not_of(" \t\r")] != ',')
        table.end_row();
    } else {
      depth = 0;
    }
  }
  if (depth > 0) fail(path, "ends inside brackets");
  table.finish(&arrays);
  return arrays;
}

std::string plain_text(std::string_view bytes) {
  constexpr std::string_view kNumPy = "np.float";
  const std::string all = from_utf16(bytes);
  std::string text;
  std::size_t begin = 0;
  for (std::size_t at; (at = all.find(kNumPy, begin)) != std::string::npos;) {
    const std::size_t open = at + kNumPy.size() + 2;  // behind 64 or 32
    const std::size_t close = all.find_first_of(")\n", open);
    const bool is_number = close != std::string::npos && all[open] == '(' && all[close] == ')';
    text.append(all, begin, at - begin);
    text.append(all, is_number ? open + 1 : at, is_number ? close - open - 1 : kNumPy.size());
    begin = is_number ? close + 1 : at + kNumPy.size();
  }
  text.append(all, begin, std::string::npos);
  return text;
}

}  // namespace jurn
