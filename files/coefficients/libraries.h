// Coefficient files that libraries read.
#pragma once

#include <string>
#include <vector>

#include "coefficients/parse.h"

namespace jurn {

/** All matrices of a MATLAB file, those of structures by the names of their fields. */
std::vector<Array> read_mat(const std::string& path);

/** The same of a file of level 7.3, and of any HDF5 file with arrays; through a library that is
 * loaded. */
std::vector<Array> read_hdf5(const std::string& path, void* library);

/** The members of an archive that numpy.savez or savez_compressed wrote. */
std::vector<ArchiveMember> read_npz(const std::string& path, const std::string& bytes);

/** The arrays of a JSON text by their keys: lists, lists of lists, and objects with b0 ... a2,
 * which are sections; roots are pairs of real and imaginary part. */
std::vector<Array> read_json(const std::string& path, const std::string& text);
bool is_json(const std::string& text);

/** The filters of CamillaDSP's settings that its pipeline runs, the same on every channel, as one
 * filter: sections, or taps. */
FilterDesign read_camilla(const std::string& path, const std::string& text,
                          const ReadOptions& options);

}  // namespace jurn
