// A design as it stands for other programs and libraries to run it.
#pragma once

#include <string>

#include "design/filter_design.h"

namespace jurn {

/** The numbers are part of the web's interface. */
enum class CodeFormat {
  kCmsis,     // C: arm_biquad_cascade_df2T_f32 or arm_fir_f32 of CMSIS-DSP, in float
  kWebAudio,  // JavaScript: IIRFilterNodes, or a ConvolverNode
  kEqualiser  // lines of Equalizer APO, "Filter: ON IIR Order 2 Coefficients b0 b1 b2 a0 a1 a2"
};

/** Throws where the format has no such filter: CMSIS-DSP and lines of equalisers have no direct
 * form of a higher order than 2, Web Audio none of more than 20 coefficients, equalisers no FIR.
 * `name` is an identifier. */
std::string code_of(const FilterDesign& design, CodeFormat format, const std::string& name,
                    int rate);

}  // namespace jurn
