#include "audio/privileged/PXPrivilegedServer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

/// The root helper for a machine in a folder: ROOT, the user who was let in, milliseconds without
/// a request.
int main(int argc, char **argv)
{
    if (argc != 4)
        return EXIT_FAILURE;
    ::umask(022);
    const PXPrivilegedCommands commands(argv[1], static_cast<uid_t>(std::stoi(argv[2])));
    PXPrivilegedServer(commands, STDIN_FILENO, STDOUT_FILENO, std::stoi(argv[3])).run();
    return EXIT_SUCCESS;
}
