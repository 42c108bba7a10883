// The token account of a task.

#include "budget.h"

#include <algorithm>

namespace vesk {

bool BudgetManager::reserve(qint64 amount)
{
    // Written as a subtraction: a sum of three large numbers could overflow.
    if (amount < 0 || amount > limit - used - reserved)
        return false;
    reserved += amount;
    return true;
}

void BudgetManager::settle(qint64 reservedAmount, qint64 actual)
{
    used += std::max<qint64>(actual, 0);
    reserved = std::max<qint64>(reserved - reservedAmount, 0);
}

} // namespace vesk
