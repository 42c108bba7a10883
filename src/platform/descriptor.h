#pragma once

#include <utility>

namespace vesk {

/// An open file of the kernel, closed with the object. -1 stands for none.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number)
        : number(number)
    {
    }
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept
        : number(std::exchange(other.number, -1))
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        if (this != &other) {
            reset();
            number = std::exchange(other.number, -1);
        }
        return *this;
    }

    int get() const { return number; }
    explicit operator bool() const { return number >= 0; }
    /// Closes it. `errno` stays as it was.
    void reset();

private:
    int number = -1;
};

} // namespace vesk
