#include "foundation/PXDefaults.h"

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

/// A second program that writes settings: FILE PREFIX COUNT. Waits for a line on standard input,
/// then sets PREFIX 0 … PREFIX COUNT-1, each with a write of its own.
int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    PXDefaults defaults(QString::fromLocal8Bit(argv[1]));
    (void)std::puts("ready");
    (void)std::fflush(stdout);
    (void)std::getchar();
    const int count = QByteArray(argv[3]).toInt();
    for (int i = 0; i < count; ++i) {
        if (!defaults.setValue(u"%1 %2"_s.arg(QString::fromLocal8Bit(argv[2])).arg(i), i))
            return 1;
    }
    return 0;
}
