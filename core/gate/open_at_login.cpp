#include "core/gate/open_at_login.h"

#include <algorithm>

namespace holdenmere {

bool OpenAtLogin::openedQuietly(const std::vector<std::string>& arguments) {
    return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
}

std::vector<std::string> OpenAtLogin::withoutOpenedAtLogin(const std::vector<std::string>& arguments) {
    std::vector<std::string> result;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (index > 0 && arguments[index] == argument) continue;
        result.push_back(arguments[index]);
    }
    return result;
}

}  // namespace holdenmere
