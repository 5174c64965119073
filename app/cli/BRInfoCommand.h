#pragma once

#include <QString>

/// `tolvane info PATH [--json]`: what the header and the index of a raw capture say.
int BRRunInfoCommand(const QString &path, bool asJSON);
