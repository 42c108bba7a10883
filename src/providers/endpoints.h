#pragma once
#include <QString>
namespace vesk {
QString geminiHost();
}
