#pragma once

#include <QString>

/// Exports the same content at one, four and sixteen times its length, each by a process of its
/// own, and prints the peaks of resident memory and their ratios.
void comparePeakMemory(const QString &folder);

/// What such a process does: exports and prints its peak in KiB.
void exportAndPrintPeak(const QString &capture, const QString &output);
