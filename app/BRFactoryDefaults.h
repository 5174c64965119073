#pragma once

#include "foundation/PXError.h"

#include <QString>
#include <QVariant>

#include <vector>

class PXDefaults;

/// The one place where settings get their factory values. Used at launch, before anybody reads a
/// setting; main thread.
namespace BRFactoryDefaults {

struct Entry {
    QString key;
    QVariant value;
};

/// Every built-in value, always in the same order. Colours are archived, shortcuts are
/// dictionaries, rectangles and paths are strings. Makes the user's application support folder,
/// which the movies go into, or logs why not.
std::vector<Entry> table();

/// Takes over keys that earlier releases wrote, under their new names, and removes the old ones.
/// Costs nothing once they are gone.
PXExpected<void> takeOverOldKeys(PXDefaults &defaults);

/// Takes over the old keys, then registers the table with the resource "Defaults.plist" over it.
/// A damaged resource changes nothing; that, and settings that cannot be written, are logged.
void registerFactoryDefaults(PXDefaults &defaults);

} // namespace BRFactoryDefaults
