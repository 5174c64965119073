#pragma once

#include "foundation/PXError.h"

#include <stdexcept>
#include <type_traits>

/// What must work for a test to make sense: the value, or an exception with the error's text.
template <typename T> T valueOf(PXExpected<T> expected)
{
    if (!expected)
        throw std::runtime_error(PXErrorLine(expected.error()).toStdString());
    if constexpr (!std::is_void_v<T>)
        return *std::move(expected);
}
