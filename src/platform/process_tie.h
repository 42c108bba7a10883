#pragma once

class QProcess;

namespace vesk {

/// Makes a program that `process` is going to start die together with this process, however this process ends. It is
/// for one program that starts no others; whatever may start more needs a ProcessContainment.
void endWithThisProcess(QProcess &process);

} // namespace vesk
