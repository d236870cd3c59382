#pragma once

#include <QString>

#include <optional>

namespace pixmora {

// Starting the program when the user logs in.
class LoginItem {
public:
    virtual ~LoginItem() = default;
    virtual bool isEnabled() = 0;
    // Each answers the system's error text on failure, nothing on success.
    virtual std::optional<QString> enable() = 0;
    virtual std::optional<QString> disable() = 0;
};

} // namespace pixmora
