#include "exact.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "coefficients/libraries.h"
#include "coefficients/roles.h"

namespace jurn {
namespace {

using Json = nlohmann::json;

constexpr int kMaxDepth = 16;  // of objects and lists

bool is_list_of(const Json& list, bool (Json::*property)() const noexcept) {
  return list.is_array() && !list.empty() &&
         std::all_of(list.begin(), list.end(), [&](const Json& x) { return (x.*property)(); });
}

/** Appends b0, b1, b2, a0, a1, a2 of an object, if it is a section. */
bool append_section(const Json& node, Array* sos) {
  const auto has = [&](const char* key) { return node.contains(key) && node[key].is_number(); };
  if (!node.is_object() || !has("b0") || !has("b1") || !has("b2") || !has("a1") || !has("a2"))
    return false;
  for (const char* const key : {"b0", "b1", "b2", "a0", "a1", "a2"})
    sos->values.push_back(has(key) || key[1] != '0' ? node[key].get<double>() : 1.0);
  ++sos->rows;
  return true;
}

void add(const std::string& path, const std::string& name, const Json& node, int depth,
         std::vector<Array>* arrays) {
  Array array;
  array.name = name;
  array.rows = 0;
  array.columns = 6;
  if (node.is_object() ? append_section(node, &array)
                       : is_list_of(node, &Json::is_object) &&
                             std::all_of(node.begin(), node.end(), [&](const Json& section) {
                               return append_section(section, &array);
                             })) {
    array.name = "sos";
  } else if (is_list_of(node, &Json::is_number)) {
    array.rows = 1;
    array.values = node.get<std::vector<double>>();
    array.columns = array.values.size();
  } else if (node.is_number() && role_of(name) == Role::kGain) {
    array.rows = array.columns = 1;
    array.values = {node.get<double>()};
  } else if (is_list_of(node, &Json::is_array)) {
    array.rows = node.size();
    array.columns = node[0].size();
    for (const Json& row : node) {
      if (!is_list_of(row, &Json::is_number) || row.size() != array.columns)
        return fail(path, "the lists in " + label(array) + " are no rows of as many numbers each");
      for (const Json& value : row) array.values.push_back(value.get<double>());
    }
    const Role role = role_of(name);
    if ((role == Role::kZeros || role == Role::kPoles) && array.columns == 2) {
      std::vector<double> real;
      for (std::size_t i = 0; i < array.values.size(); i += 2) {
        real.push_back(array.values[i]);
        array.imaginary.push_back(array.values[i + 1]);
      }
      array.values = std::move(real);
      array.columns = array.rows;
      array.rows = 1;
    }
  } else {
    if (node.is_structured() && depth < kMaxDepth)
      for (const auto& [key, value] : node.items())
        add(path, node.is_object() ? key : name, value, depth + 1, arrays);
    return;
  }
  arrays->push_back(std::move(array));
}

}  // namespace

bool is_json(const std::string& text) {
  return text.find_first_of("[{") == text.find_first_not_of(" \t\r\n") && Json::accept(text);
}

std::vector<Array> read_json(const std::string& path, const std::string& text) {
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::exception& error) {
    const std::string message = error.what();
    fail(path, "is no JSON: " + message.substr(message.find(']') + 2));
  }
  std::vector<Array> arrays;
  add(path, "", root, 0, &arrays);
  return arrays;
}

}  // namespace jurn
