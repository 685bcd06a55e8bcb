// A live filter as a service of systemd that runs whenever the user is logged in.
#pragma once

#include <string>
#include <vector>

namespace jurn {

/** Writes the service of this name, which runs this program with such arguments, and starts it now
 * and at each login. Returns the file. */
std::string install_service(const std::string& name, const std::vector<std::string>& arguments);

/** Ends the service and removes all of it. Returns the file. */
std::string uninstall_service(const std::string& name);

}  // namespace jurn
