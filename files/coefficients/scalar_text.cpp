// Texts that give coefficients one by one: "h[0] = 0.5;", "b0 = 0.25".
#include "exact.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "coefficients/parse.h"

namespace jurn {
namespace {

/** One line: h[3] = 0.5 is h, 3 and 0.5. */
struct Assignment {
  std::string name;
  std::string_view index;  // digits, or nothing
  bool from_one = false;   // h(1) is MATLAB's first
  std::string_view value;
};

std::string_view code_of(std::string_view line) {
  return line.substr(0, std::min(line.find_first_of("#%"), line.find("//")));
}

bool is_word(std::string_view text) {
  return !text.empty() && !std::isdigit(static_cast<unsigned char>(text[0])) &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
         });
}

/** Reads a line of that form; a type may stand before the name. */
bool parse_assignment(std::string_view line, Assignment* result) {
  line = code_of(line);
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return false;
  const std::vector<std::string_view> left = split(line.substr(0, equals), " \t");
  const std::vector<std::string_view> right = split(line.substr(equals + 1), " \t\r;,");
  if (left.empty() || right.size() != 1) return false;
  std::string_view name = left.back();
  const std::size_t open = name.find_first_of("[(");
  if (open != std::string_view::npos) {
    if (name.back() != (name[open] == '[' ? ']' : ')')) return false;
    result->index = name.substr(open + 1, name.size() - open - 2);
    result->from_one = name[open] == '(';
    if (result->index.empty() || result->index.size() > 8 ||
        result->index.find_first_not_of("0123456789") != std::string_view::npos)
      return false;
    name = name.substr(0, open);
  }
  result->name = lower(name);
  result->value = right[0];
  return is_word(name) && right[0].find_first_of("[{\"'(") == std::string_view::npos;
}

bool is_section_part(const std::string& name) {
  return name.size() == 2 && (name[0] == 'a' || name[0] == 'b') && name[1] >= '0' && name[1] <= '2';
}

/** The parts of one section, by name. */
using Parts = std::map<std::string, double>;

/** Appends a section. Where b0 is missing, a0, a1, a2 are the numerator and b1, b2 the
 * denominator, as in EarLevel's. */
void append_section(const std::string& path, int line, const Parts& parts, Array* sos) {
  const bool swapped = !parts.count("b0");
  const char* const names[2][6] = {{"b0", "b1", "b2", "a0", "a1", "a2"},
                                   {"a0", "a1", "a2", "b0", "b1", "b2"}};
  for (int i = 0; i < 6; ++i) {
    const char* const name = names[swapped][i];
    const auto found = parts.find(name);
    if (found == parts.end() && i != 3)
      fail(path, line,
           std::string("the section has no ") + name + "; it takes b0, b1, b2, a1 and a2");
    sos->values.push_back(found == parts.end() ? 1.0 : found->second);
  }
  ++sos->rows;
}

}  // namespace

bool is_scalar_text(std::string_view text) {
  int found = 0;
  for (const std::string_view line : lines_of(text)) {
    Assignment a;
    if (lower(line.substr(0, line.find_first_of(" \t,="))).substr(0, 6) == "biquad") return false;
    found += parse_assignment(line, &a) && (!a.index.empty() || is_section_part(a.name));
  }
  return found > 1;
}

std::vector<Array> parse_scalar_text(const std::string& path, std::string_view text) {
  std::vector<Array> arrays;
  Array sos;
  sos.name = "sos";
  sos.rows = 0;
  sos.columns = 6;
  Parts parts;
  const std::vector<std::string_view> lines = lines_of(text);
  int line = 0;
  for (const std::string_view content : lines) {
    ++line;
    Assignment a;
    if (!parse_assignment(content, &a)) {
      if (code_of(content).find('=') != std::string_view::npos)
        fail(path, line, quote(content) + " is not understood among coefficients one by one");
      continue;
    }
    if (!a.index.empty()) {
      auto array = std::find_if(arrays.begin(), arrays.end(),
                                [&](const Array& x) { return x.name == a.name; });
      if (array == arrays.end()) {
        arrays.push_back({});
        array = arrays.end() - 1;
        array->name = a.name;
      }
      const std::size_t next = array->values.size() + a.from_one;
      if (parse_number(path, line, a.index) != static_cast<double>(next))
        fail(path, line,
             quote(a.name) + " has the index " + std::string(a.index) + " where " +
                 std::to_string(next) + " would follow");
      array->values.push_back(parse_number(path, line, a.value));
      array->columns = array->values.size();
    } else if (is_section_part(a.name)) {
      if (parts.count(a.name)) {
        append_section(path, line, parts, &sos);
        parts.clear();
      }
      parts[a.name] = parse_number(path, line, a.value);
    } else if (a.name == "gain" || a.name == "g" || a.name == "k") {
      fail(path, line, quote(a.name) + " is not understood among coefficients one by one");
    }
  }
  if (!parts.empty()) append_section(path, line, parts, &sos);
  if (sos.rows > 0 && !arrays.empty())
    fail(path, "holds sections and arrays; only one of them can run");
  if (sos.rows > 0) arrays.push_back(std::move(sos));
  return arrays;
}

}  // namespace jurn
