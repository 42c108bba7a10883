#include "endpoints.h"
using namespace Qt::StringLiterals;
namespace vesk {
QString geminiHost()
{
    return u"generativelanguage.googleapis.com"_s;
}
} // namespace vesk
