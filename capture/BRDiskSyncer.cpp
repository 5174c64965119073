#include "capture/BRDiskSyncer.h"

#include "foundation/BRLog.h"
#include "foundation/PXThread.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {
constexpr auto kTimeBetweenSyncs = 2s;
}

BRDiskSyncer::BRDiskSyncer(QStringList filePaths, std::function<void(const PXError &)> failed)
    : _filePaths(std::move(filePaths)),
      _failed(std::move(failed)),
      _thread([this](const std::stop_token &stop) { _run(stop); })
{
}

BRDiskSyncer::~BRDiskSyncer() = default;

void BRDiskSyncer::noteThatFilesWereWritten()
{
    {
        PXLock lock(_lock);
        if (_mustBeSynced)
            return;
        _mustBeSynced = true;
    }
    _written.notify_one();
}

PXExpected<void> BRDiskSyncer::finish()
{
    _thread.request_stop();
    if (_thread.joinable())
        _thread.join();
    return _firstError ? PXExpected<void>(PXFail(*_firstError)) : PXExpected<void>();
}

void BRDiskSyncer::_run(const std::stop_token &stop)
{
    PXSetThreadName("tolvane-sync");
    while (!stop.stop_requested()) {
        {
            PXLock lock(_lock);
            _written.wait(lock, stop, [this]() PX_NO_THREAD_ANALYSIS { return _mustBeSynced; });
            // Nobody notifies during this wait: only the stop ends it early.
            _written.wait_for(lock, stop, kTimeBetweenSyncs, [] { return false; });
            if (!_mustBeSynced)
                continue;
            _mustBeSynced = false;
        }
        _sync();
    }
    // The stop may have come during a sync, and more been written meanwhile.
    if (PXLock lock(_lock); _mustBeSynced)
        _sync();
}

void BRDiskSyncer::_sync()
{
    for (const QString &path : _filePaths) {
        // Opened anew each time: any descriptor of the file syncs all that was written to it, and
        // the writer may have made the file anew.
        const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
        if (file < 0) {
            _fail(PXPOSIXError(errno, u"Could not open file "_s + path));
            continue;
        }
        // EINVAL: a file system that cannot, which is no reason not to record on it.
        if (::fdatasync(file) != 0 && errno != EINVAL)
            _fail(PXPOSIXError(errno, u"Could not store file "_s + path));
        ::close(file);
    }
}

void BRDiskSyncer::_fail(const PXError &error)
{
    if (_firstError)
        return;
    _firstError = error;
    BRLog(BRLogError, error.description);
    _failed(error);
}
