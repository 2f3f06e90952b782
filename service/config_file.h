// A settings file as a whole.
#pragma once

#include "service/config_section.h"

#include <stdexcept>

namespace tessaly::service {

// what() is for the user: for each problem its file, line and column, then the line with a mark below.
class config_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Who may be able to write the file: anybody, or only its owner, who then must be root or this process's user.
enum class writers { anybody, owner };

// Hands the file's table to read_all. Throws config_error, for all problems at once, also when the file cannot be read.
void read_config_file(const std::string& file, const std::function<void(config_section&)>& read_all,
                      writers by = writers::anybody);

}  // namespace tessaly::service
