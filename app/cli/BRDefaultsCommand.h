#pragma once

#include <QString>

#include <optional>

/// `tolvane defaults read [KEY]`: the value, or every key with its value.
int BRRunDefaultsRead(const std::optional<QString> &key, bool asJSON);
/// `tolvane defaults write KEY VALUE`: in the type that the key has; with JSON the value's own.
int BRRunDefaultsWrite(const QString &key, const QString &value, bool asJSON);
/// `tolvane defaults delete KEY`: back to the factory value.
int BRRunDefaultsDelete(const QString &key);
