// Filters whose coefficients stand in files.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "coefficients/formats.h"
#include "commands/filter.h"
#include "design/prepare.h"

namespace jurn {

/** How files of coefficients are read. */
struct ReadingOptions {
  bool normalise = false;
  CoefficientFormat format = CoefficientFormat::kByContent;
  std::vector<std::string> variables;
  std::optional<bool> negate_a;
};
void add_reading(CLI::App* command, ReadingOptions* options);
void add_format(CLI::App* command, CoefficientFormat* format, std::vector<std::string>* variables);
void add_signs(CLI::App* command, ReadingOptions* options);

/** A file with all coefficients, or one for the numerator and one for the denominator. */
struct CoefficientFiles {
  std::string all, numerator, denominator;

  const std::string& name() const { return all.empty() ? denominator : all; }
};

/** Reads and checks a design. */
FilterDesign read_design(const CoefficientFiles& files, FilterDesign::Kind kind,
                         Precision precision, const ReadingOptions& options, int rate);
/** Scales a design's largest gain to 0 dB. */
void normalise(const std::string& name, FilterDesign* design);
/** The same of filters in series. */
void normalise(const std::string& name, std::vector<FilterDesign>* chain);

/** What the subcommands take that run one design of a file. */
struct DesignOptions {
  CoefficientFiles files;
  ReadingOptions reading;
  Precision precision = Precision::kDouble;
  bool as_is = false, as_sections = false;
  bool time_domain = false;
  bool tail = false, align = false, zero_phase = false;
};
CLI::Option* add_coefficients(CLI::App* command, Filter* filter, DesignOptions* options,
                              const char* description);
void add_precision(CLI::App* command, DesignOptions* options);
/** How a recursive filter is prepared. */
void add_preparation(CLI::App* command, DesignOptions* options);
void add_as_is(CLI::App* command, DesignOptions* options);
/** Where the result begins and ends. */
void add_ends(CLI::App* command, DesignOptions* options);

/** What filters a recording with a design times a gain; for a new design says what preparing did.
 */
std::unique_ptr<Stage> make_filter(const std::string& name, FilterDesign design, double gain,
                                   const DesignOptions& options, const Recording& recording,
                                   bool is_new);

/** Prepares a design and, for a new one, says what that did. */
Prepared prepare_and_say(const std::string& name, const FilterDesign& design,
                         const DesignOptions& options, const Recording& recording, bool is_new);

/** Makes the filter run the design of a file, which is read once for every rate; or the design that
 * `design`(rate) gives, whose name is for messages. */
void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                FilterDesign::Kind kind);
void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                const std::string& name, std::function<FilterDesign(int rate)> design);

}  // namespace jurn
