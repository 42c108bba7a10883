// A stand-in for what draws the background.

#include "background_renderer.h"

using namespace Qt::StringLiterals;

namespace vesk {

void BackgroundRenderer::render(const QString &code, double, int, int)
{
    const QString now = code.isEmpty() ? QString() : u"Фон пока не поддерживается в этой версии."_s;
    if (now == problem)
        return;
    problem = now;
    Q_EMIT changed();
}

} // namespace vesk
