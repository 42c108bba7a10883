#pragma once

class QFileInfo;

namespace vesk {

/// Whether a file is what a compiler has made of others. May read how it begins.
bool isCompiled(const QFileInfo &file);

} // namespace vesk
