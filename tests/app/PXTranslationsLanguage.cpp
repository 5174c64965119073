#include "app/PXTranslations.h"

#include <QCoreApplication>

#include <cstdio>

/// Prints the language that its environment asks for, which a program reads once.
int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const PXTranslations translations;
    std::printf("%s\n", qPrintable(translations.language()));
    return 0;
}
