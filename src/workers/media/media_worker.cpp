// The media worker, as a library of its own: linked into the executable, Qt Gui would cost every run without a window.

#include "media_job.h"

#include "entry_points.h"

extern "C" Q_DECL_EXPORT int veskMediaJob(const char *job)
{
    return vesk::runMediaJob(QByteArray(job));
}
