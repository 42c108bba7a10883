#pragma once

#include "media_job.h"

#include <QCoreApplication>

#include <cstring>

/// A backend starts its own executable for each job on media; in a test that is the test. To be called first in main:
/// true when this process is such a worker, which has then done its job and is to end with `code`.
inline bool wasMediaWorker(int argc, char **argv, int &code)
{
    if (argc < 3 || std::strcmp(argv[1], "--media-job") != 0)
        return false;
    const QCoreApplication application(argc, argv);
    code = vesk::runMediaJob(argv[2]);
    return true;
}
