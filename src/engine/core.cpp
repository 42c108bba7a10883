// What a start finds of earlier processes.

#include "core.h"

#include "helpers.h"
#include "page_pictures.h"
#include "reasons.h"
#include "recovery.h"
#include "test_copy.h"

#include <exception>

using namespace Qt::StringLiterals;

namespace vesk {

QString Core::recover()
{
    removeCopies(engine.copiesFolder);
    removeOldPictures(engine.picturesFolder);
    try {
        recoverInterruptedTasks(store);
        return {};
    } catch (const std::exception &fault) {
        return u"Незаконченные задачи не удалось привести в порядок: "_s + reasonText(textOf(fault));
    }
}

} // namespace vesk
