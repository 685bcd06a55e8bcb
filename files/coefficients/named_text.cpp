// Texts that name their arrays: Octave's saves, MATLAB's .fcf, and assignments of MATLAB and
// Python, whose printed arrays need no name.
#include "exact.h"

#include <algorithm>
#include <cctype>

#include "coefficients/roles.h"

namespace jurn {
namespace {

const char* const kBetween = " \t\r\v\f,";
const char* const kNoNumber = " \t\r\v\f,()";
constexpr std::string_view kPrinted = "array([";  // as Python shows arrays

/** Whether a text is an array as NumPy prints it: in brackets and without commas. */
bool is_printed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && text[first] == '[' && text.find(',') == text.npos;
}

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
  if (!is_name) return {};
  if (bracket != std::string_view::npos) return std::string(words[0]);
  const std::vector<std::string_view> value = split(*rest, " \t\r;");
  const bool is_gain = role_of(words[0]) == Role::kGain && value.size() == 1 &&
                       value[0].find_first_not_of("+-.0123456789eE") == std::string_view::npos;
  return is_gain ? std::string(words[0]) : std::string();
}

/** Whether a line lists several numbers of a filter behind a name, and no brackets: "z = -1 -1". */
bool lacks_brackets(std::string_view line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return false;
  const std::vector<std::string_view> names = split(line.substr(0, equals), kBetween);
  return names.size() == 1 && role_of(names[0]) != Role::kOther &&
         split(line.substr(equals + 1), " \t\r,;").size() > 1 &&
         line.find_first_not_of("+-.0123456789eEij,; \t\r", equals + 1) == std::string_view::npos;
}

/** Of "0.5-0.25j" the length of 0.5; 0 where there is no real part. */
std::size_t length_of_real_part(std::string_view word) {
  for (std::size_t at = word.size() - 2; at > 0; --at)
    if ((word[at] == '+' || word[at] == '-') && word[at - 1] != 'e' && word[at - 1] != 'E')
      return at;
  return 0;
}

/** Collects rows of numbers. */
class Table {
 public:
  explicit Table(std::string name) { array_.name = std::move(name); }

  /** Whether Python has printed it. */
  bool is_nameless() const { return array_.name.empty(); }

  /** Complex numbers may be parted from the sign of their imaginary part: "0.5 + 0.25i". */
  void add(const std::string& path, int line, std::string_view text) {
    double sign = 0.0;
    for (const std::string_view word : split(text, kNoNumber)) {
      if (word == "+" || word == "-") {
        sign = word == "-" ? -1.0 : 1.0;
        continue;
      }
      const bool complex = word.size() > 1 && (word.back() == 'i' || word.back() == 'j');
      const std::size_t real = complex ? length_of_real_part(word) : word.size();
      if (real) {
        if (complex) array_.imaginary.resize(array_.values.size() + 1);
        array_.values.push_back(parse_number(path, line, word.substr(0, real)));
        ++row_;
      }
      if (!complex) continue;
      if (row_ == 0) fail(path, line, quote(word) + " has no real part before it");
      array_.imaginary.resize(array_.values.size());
      array_.imaginary.back() =
          parse_number(path, line, word.substr(real, word.size() - real - 1)) *
          (sign != 0.0 ? sign : 1.0);
      sign = 0.0;
    }
    if (!array_.imaginary.empty()) array_.imaginary.resize(array_.values.size());
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

/** Adds what stands in brackets; returns whether the outermost is still open. `text` becomes what
 * follows it. */
bool add_bracketed(const std::string& path, int line, std::string_view* rest, int* depth,
                   Table* table) {
  const std::string_view text = *rest;
  std::string_view number;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of("[];", at), text.size());
    number = text.substr(at, end - at);
    if (const std::size_t dots = number.find("..."); dots != std::string_view::npos) {
      // In MATLAB the row goes on in the next line, in Python something is left out.
      if (table->is_nameless() || dots == text.find_first_not_of(kBetween) ||
          text.find_first_not_of(" \t\r", at + dots + 3) != std::string_view::npos)
        fail(path, line, "\"...\" stands for numbers that are left out; write all of them");
      number = number.substr(0, dots);
    }
    table->add(path, line, number);
    if (end == text.size()) break;
    if (text[end] != '[') table->end_row();
    *depth += text[end] == '[' ? 1 : text[end] == ']' ? -1 : 0;
    if (*depth <= 0) {
      *rest = text.substr(end + 1);
      return false;
    }
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
  return is_printed(text) || std::any_of(lines.begin(), lines.end(), [&](std::string_view line) {
           return line.find(kPrinted) != std::string_view::npos || !octave_name(line).empty() ||
                  !designer_name(line).empty() ||
                  !assigned_name(line.substr(0, line.find_first_of("#%")), &rest).empty();
         });
}

std::vector<Array> parse_named_text(const std::string& path, std::string_view text) {
  std::vector<Array> arrays;
  const std::vector<std::string_view> lines = lines_of(text);
  Table table("");
  const bool all_printed = is_printed(text);
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
      const std::size_t printed = all_printed ? content.find('[') : content.find(kPrinted);
      if (name.empty() && printed != std::string_view::npos) rest = content.substr(printed);
      if (name.empty() && printed == std::string_view::npos) {
        if (lacks_brackets(content))
          fail(path, line, "several numbers behind a name stand in brackets: b = [0.5, 0.5]");
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
      const std::size_t bracket = rest.find('[');
      if (bracket == std::string_view::npos) {
        table.add(path, line, split(rest, " \t\r;")[0]);
        continue;
      }
      rest = rest.substr(bracket);
    }
    bool goes_on = add_bracketed(path, line, &rest, &depth, &table);
    for (std::size_t next; !goes_on && (next = rest.find(kPrinted)) != std::string_view::npos;) {
      begin("");  // of several that are printed in one line
      depth = 0;
      rest = rest.substr(next + kPrinted.size() - 1);
      goes_on = add_bracketed(path, line, &rest, &depth, &table);
    }
    if (goes_on) {
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
