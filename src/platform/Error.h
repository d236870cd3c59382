#pragma once

#include <QString>

#include <stdexcept>

namespace pixmora {

// A failure with a description fit for an alert's informative text.
class Error : public std::runtime_error {
public:
    explicit Error(const QString &description)
        : std::runtime_error(description.toStdString()), m_description(description) {}
    const QString &description() const { return m_description; }

private:
    QString m_description;
};

} // namespace pixmora
