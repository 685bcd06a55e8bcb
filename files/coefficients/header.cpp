// C headers with coefficients, as MATLAB's filter designer exports them: the direct form (B, BL or
// NUM, NL and DEN, DL) and sections (NUM and DEN with MWSPT_NSEC rows, gains between the sections).
#include "exact.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>

#include "coefficients/parse.h"

namespace jurn {
namespace {

struct Token {
  int line;
  std::string_view text;
};

/** An array or scalar as it is declared. */
struct Declaration {
  Array array;
  int line = 0;
  int integer_bits = 0;  // of integer types, else 0
};

/** Bits after the binary point, by what they belong to: numerator, denominator, scale. */
using FractionBits = std::map<std::string, int>;

bool is_name(std::string_view token) {
  return std::isalpha(static_cast<unsigned char>(token[0])) || token[0] == '_';
}

bool begins_number(std::string_view token) {
  return std::isdigit(static_cast<unsigned char>(token[0])) ||
         (token.size() > 1 && std::string_view("+-.").find(token[0]) != std::string_view::npos);
}

/** Blanks comments, so that lines keep their numbers. */
std::string without_comments(std::string_view text) {
  std::string code(text);
  for (std::size_t at = 0; at + 1 < code.size(); ++at) {
    if (code[at] != '/' || (code[at + 1] != '*' && code[at + 1] != '/')) continue;
    const bool block = code[at + 1] == '*';
    std::size_t end = code.find(block ? "*/" : "\n", at + 2);
    end = end == std::string::npos ? code.size() : end + (block ? 2 : 0);
    for (; at < end; ++at)
      if (code[at] != '\n') code[at] = ' ';
    --at;
  }
  return code;
}

std::vector<Token> tokens_of(std::string_view code) {
  std::vector<Token> tokens;
  int line = 1;
  for (std::size_t at = 0; at < code.size();) {
    const auto c = [&](std::size_t i) {
      return i < code.size() ? static_cast<unsigned char>(code[i]) : '\0';
    };
    if (std::isspace(c(at))) {
      line += code[at++] == '\n';
      continue;
    }
    std::size_t end = at + 1;
    const bool sign = code[at] == '-' || code[at] == '+';
    if (std::isalnum(c(at)) || code[at] == '_' || code[at] == '.' || sign)
      while (std::isalnum(c(end)) || c(end) == '_' || c(end) == '.' ||
             ((c(end) == '-' || c(end) == '+') && (c(end - 1) | 32) == 'e' &&
              begins_number(code.substr(at, end - at))))
        ++end;
    tokens.push_back({line, code.substr(at, end - at)});
    at = end;
  }
  return tokens;
}

double number(const std::string& path, const Token& token) {
  std::string_view digits = token.text;
  while (digits.size() > 1 &&
         std::string_view("fFlLuU").find(digits.back()) != std::string_view::npos)
    digits.remove_suffix(1);
  const double value = parse_number(path, token.line, digits);
  const bool is_float = digits.size() < token.text.size() && (token.text.back() | 32) == 'f';
  return is_float ? static_cast<double>(static_cast<float>(value)) : value;
}

/** The bits of a fixed-point type; plain int holds lengths and counts. */
int bits_of(std::string_view type) {
  const std::string text = lower(type);
  if (text == "int") return 0;
  if (text == "short") return 16;
  if (text == "long") return 32;
  if (text == "char") return 8;
  // CMSIS and others: fractions of the full scale.
  if (text == "q7_t") return 8;
  if (text == "q15_t" || text == "_q15" || text == "fract16") return 16;
  if (text == "q31_t" || text == "_q31" || text == "fract32") return 32;
  const std::size_t at = text.find("int");
  if (at == std::string::npos) return 0;
  const int bits = std::atoi(text.c_str() + at + 3);
  return bits >= 2 && bits <= 64 ? bits : 32;
}

class Reader {
 public:
  Reader(const std::string& path, std::string_view code) : path_(path), tokens_(tokens_of(code)) {}

  std::vector<Declaration> declarations(bool inside_bodies) {
    at_ = 0;
    std::vector<Declaration> result;
    int bits = 0;
    while (at_ < tokens_.size()) {
      const std::string_view text = tokens_[at_].text;
      if (text == "#") {
        directive();
      } else if (text == "{" && !inside_bodies && !opens_scope()) {
        skip_body();
      } else if (is_name(text) && (next_is(1, "[") || next_is(1, "="))) {
        Declaration d = declaration();
        d.integer_bits = bits;
        if (!d.array.values.empty()) result.push_back(std::move(d));
        bits = 0;
      } else {
        bits = text == ";" ? 0 : std::max(bits, bits_of(text));
        ++at_;
      }
    }
    return result;
  }

  /** Values of #define. */
  std::map<std::string_view, double> defines;

 private:
  bool next_is(std::size_t ahead, std::string_view text) const {
    return at_ + ahead < tokens_.size() && tokens_[at_ + ahead].text == text;
  }

  /** Whether declarations follow, as in extern "C" and namespaces, and no function or type. */
  bool opens_scope() const {
    const auto before = [&](std::size_t tokens) {
      return at_ >= tokens ? tokens_[at_ - tokens].text : std::string_view();
    };
    return before(1) == "\"" || before(1) == "namespace" || before(2) == "namespace";
  }

  void skip_body() {
    int depth = 0;
    do {
      depth += next_is(0, "{") ? 1 : next_is(0, "}") ? -1 : 0;
      ++at_;
    } while (depth > 0 && at_ < tokens_.size());
  }

  void directive() {
    const int line = tokens_[at_].line;
    if (next_is(1, "define") && at_ + 3 < tokens_.size() && tokens_[at_ + 3].line == line &&
        begins_number(tokens_[at_ + 3].text))
      defines[tokens_[at_ + 2].text] = number(path_, tokens_[at_ + 3]);
    while (at_ < tokens_.size() && tokens_[at_].line == line) ++at_;
  }

  Declaration declaration() {
    Declaration d;
    d.array.name = tokens_[at_].text;
    d.line = tokens_[at_].line;
    std::vector<double> lengths;
    for (++at_; next_is(0, "["); ++at_) {
      for (++at_; at_ < tokens_.size() && !next_is(0, "]"); ++at_) {
        const Token& token = tokens_[at_];
        if (begins_number(token.text))
          lengths.push_back(number(path_, token));
        else if (defines.count(token.text))
          lengths.push_back(defines[token.text]);
      }
    }
    if (!next_is(0, "=")) return d;
    ++at_;
    const bool complete = values(&d);
    if (!complete) fail(path_, d.line, "the values of " + quote(d.array.name) + " do not end");
    for (const double length : lengths)
      if (!(length >= 1.0 && length <= 1e6))
        fail(path_, d.line, quote(d.array.name) + " has the length " + shown(length));
    double count = 1.0;
    for (const double length : lengths) count *= length;
    const double found = static_cast<double>(d.array.values.size());
    if (!lengths.empty() && count != found)
      fail(path_, d.line,
           quote(d.array.name) + " is declared with " + shown(count) + " values, but has " +
               shown(found));
    return d;
  }

  /** The values up to the end of the declaration; rows that are short end with zeros, as in C. */
  bool values(Declaration* d) {
    std::vector<std::vector<double>> rows;
    int depth = 0;
    for (; at_ < tokens_.size(); ++at_) {
      const Token& token = tokens_[at_];
      if (token.text == "{") {
        if (++depth > 2) fail(path_, token.line, quote(d->array.name) + " has three dimensions");
        if (depth == 2) rows.emplace_back();
      } else if (token.text == "}") {
        --depth;
      } else if (token.text == ";" && depth <= 0) {
        break;
      } else if (token.text != ",") {
        if (rows.empty()) rows.emplace_back();
        rows.back().push_back(number(path_, token));
      }
    }
    d->array.rows = rows.size();
    for (const std::vector<double>& row : rows)
      d->array.columns = std::max(d->array.columns, row.size());
    if (rows.size() * d->array.columns > 1000000)
      fail(path_, d->line, quote(d->array.name) + " has more than 1000000 values");
    for (std::vector<double>& row : rows) {
      row.resize(d->array.columns);
      d->array.values.insert(d->array.values.end(), row.begin(), row.end());
    }
    return at_ < tokens_.size() && depth == 0;
  }

  const std::string& path_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
};

/** Lines like "Numerator : s16,13 -> [-4 4)" say how many bits follow the binary point. */
FractionBits fraction_bits_of(std::string_view text) {
  FractionBits result;
  for (const std::string_view line : lines_of(text)) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::vector<std::string_view> value = split(line.substr(colon + 1), " \t,");
    if (value.size() < 2 || value[0].size() < 2 || (value[0][0] != 's' && value[0][0] != 'u') ||
        !begins_number(value[0].substr(1)) || !begins_number(value[1]))
      continue;
    const int bits = std::atoi(std::string(value[1]).c_str());
    const std::vector<std::string_view> words = split(line.substr(0, colon), " \t*");
    if (!words.empty() && std::abs(bits) <= 64) result.emplace(lower(words[0]), bits);
  }
  return result;
}

/** The scale of integer values: as the comment says, else `otherwise`. */
double scale_of(const Declaration& d, const FractionBits& fixed, const char* what,
                double otherwise) {
  const auto found = fixed.find(what);
  return d.integer_bits && found != fixed.end() ? std::exp2(found->second) : otherwise;
}

const Declaration* find(const std::vector<Declaration>& all, const std::string& name) {
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const Declaration& d) { return d.array.name == name; });
  return found == all.end() ? nullptr : &*found;
}

/** What follows the base name, as in NUM_1; a short base needs a mark or digit, B is common. */
bool has_base(const std::string& name, std::string_view base, std::string* suffix) {
  if (name.compare(0, base.size(), base) != 0) return false;
  *suffix = name.substr(base.size());
  return suffix->empty() || (*suffix)[0] == '_' ||
         std::isdigit(static_cast<unsigned char>((*suffix)[0])) || base.size() > 2;
}

void check_length(const std::string& path, const std::vector<Declaration>& all,
                  const std::string& name, const Declaration& d) {
  const Declaration* length = find(all, name);
  if (length && length->array.values.size() == 1 &&
      length->array.values[0] != static_cast<double>(d.array.values.size()))
    fail(path, length->line,
         quote(name) + " is " + shown(length->array.values[0]) + ", but " + quote(d.array.name) +
             " has " + count_of(d.array.values.size(), "value"));
}

/** Rows of numerators and denominators as sections. Rows that only multiply belong to the section
 * that follows, the last ones to the last section. */
Array sections(const std::string& path, const Declaration& num, const Declaration& den,
               const FractionBits& fixed) {
  if (num.array.rows != den.array.rows || num.array.columns > 3 || den.array.columns > 3)
    fail(path, den.line,
         quote(den.array.name) + " of " + std::to_string(den.array.rows) + " x " +
             std::to_string(den.array.columns) + " does not fit " + quote(num.array.name) + " of " +
             std::to_string(num.array.rows) + " x " + std::to_string(num.array.columns) +
             "; accepted are rows of 3 in both");
  Array result;
  result.name = num.array.name;
  result.columns = 6;
  result.rows = 0;
  double gain = 1.0;
  std::vector<double>& out = result.values;
  for (std::size_t r = 0; r < num.array.rows; ++r) {
    double b[3] = {}, a[3] = {};
    for (std::size_t i = 0; i < num.array.columns; ++i)
      b[i] = num.array.values[r * num.array.columns + i];
    for (std::size_t i = 0; i < den.array.columns; ++i)
      a[i] = den.array.values[r * den.array.columns + i];
    if (a[0] == 0.0)
      fail(path, den.line,
           "row " + std::to_string(r + 1) + " of " + quote(den.array.name) +
               " starts with 0; a denominator's first value must not be 0");
    const bool only_gain = b[1] == 0.0 && b[2] == 0.0 && a[1] == 0.0 && a[2] == 0.0;
    if (only_gain) {
      // A gain of 1 between sections is written as 1, whatever the scale.
      const bool one = b[0] == 1.0 && a[0] == 1.0;
      gain *= b[0] / (one ? 1.0 : scale_of(num, fixed, "scale", a[0]));
      continue;
    }
    const double scale = scale_of(num, fixed, "numerator", a[0]);
    for (const double value : b) out.push_back(gain * (value / scale));
    for (const double value : a) out.push_back(value / a[0]);
    ++result.rows;
    gain = 1.0;
  }
  if (result.rows == 0) {
    out = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
    result.rows = 1;
  }
  for (std::size_t i = out.size() - 6; i < out.size() - 3; ++i) out[i] *= gain;
  return result;
}

void check_section_count(const std::string& path, const Declaration& num,
                         const std::map<std::string_view, double>& defines,
                         const std::string& suffix) {
  const auto found = defines.find("MWSPT_NSEC" + suffix);
  const auto plain = defines.find("MWSPT_NSEC");
  const auto count = found != defines.end() ? found : plain;
  if (count != defines.end() && count->second != static_cast<double>(num.array.rows))
    fail(path, num.line,
         quote(num.array.name) + " has " + count_of(num.array.rows, "row") + ", but " +
             std::string(count->first) + " is " + shown(count->second));
}

}  // namespace

std::vector<Array> parse_header(const std::string& path, std::string_view text) {
  const std::string code = without_comments(text);
  Reader reader(path, code);
  std::vector<Declaration> all = reader.declarations(false);
  if (all.empty()) all = reader.declarations(true);
  const FractionBits fixed = fraction_bits_of(text);
  std::vector<Array> result;
  for (const Declaration& d : all) {
    std::string suffix;
    const bool is_den = has_base(d.array.name, "DEN", &suffix);
    const Declaration* partner = is_den ? find(all, "NUM" + suffix) : nullptr;
    if (is_den && partner && partner->array.rows > 1) continue;  // taken with its numerator
    if (has_base(d.array.name, "BL", &suffix) || has_base(d.array.name, "NL", &suffix) ||
        has_base(d.array.name, "DL", &suffix))
      continue;
    Array array = d.array;
    const auto divide = [&](double scale) {
      for (double& value : array.values) value /= scale;
    };
    const double full_scale = d.integer_bits ? std::exp2(d.integer_bits - 1) : 1.0;
    if (is_den) {
      check_length(path, all, "DL" + suffix, d);
      if (d.integer_bits && array.values[0] != 0.0) divide(array.values[0]);
    } else if (has_base(d.array.name, "NUM", &suffix)) {
      const Declaration* den = find(all, "DEN" + suffix);
      if (d.array.rows > 1 && den) {
        check_section_count(path, d, reader.defines, suffix);
        array = sections(path, d, *den, fixed);
      } else {
        check_length(path, all, "NL" + suffix, d);
        const double a0 = den ? den->array.values[0] : full_scale;
        if (d.integer_bits && a0 != 0.0) divide(scale_of(d, fixed, "numerator", a0));
      }
    } else {
      if (has_base(d.array.name, "B", &suffix)) check_length(path, all, "BL" + suffix, d);
      if (d.integer_bits) divide(scale_of(d, fixed, "numerator", full_scale));
    }
    result.push_back(std::move(array));
  }
  if (const std::optional<Mark> mark = mark_of_comments(text)) {
    for (Array& array : result)  // of an exported header: NAME_b
      array.name = array.name.substr(array.name.find_last_of('_') + 1);
    result.emplace_back();
    result.back().name = kMarkName;
    result.back().text = text_of(*mark);
  }
  return result;
}

}  // namespace jurn
