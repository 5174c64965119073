#include "audio/BRRunEventLoop.h"

#include "foundation/PXMainThread.h"
#include "foundation/PXThread.h"

#include <QEventLoop>
#include <QTimer>

#include <thread>

void BRRunEventLoop(std::chrono::milliseconds time)
{
    QEventLoop loop;
    QTimer::singleShot(time, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

void BRRunEventLoopDuring(const std::function<void()> &work)
{
    QEventLoop loop;
    const std::jthread thread([&] {
        PXSetThreadName("tolvane-files");
        work();
        PXMainThread::post(&loop, [&] { loop.quit(); });
    });
    loop.exec();
}
