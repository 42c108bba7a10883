// Stands in for a person at the machine: answers what the keyring daemon asks. Prints the name on the session bus under
// which it can be asked, and goes on until it is killed.
//
//   keyring-person declining|declining-at-first|slow|absent PASSWORD

#include <cstdio>
#include <string_view>

#include <dlfcn.h>
#include <unistd.h>

namespace {

// The library of the daemon's own prompts has this for tests. Its headers are in a package that nothing else needs.
template <class Function> Function *find(void *library, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(library, name));
}

constexpr int manyTimes = 20;
constexpr unsigned slowMs = 5000;
constexpr unsigned hourMs = 3600000;

} // namespace

int main(int argc, char **argv)
{
    void *library = ::dlopen("libgcr-base-3.so.1", RTLD_NOW);
    if (!library || argc < 3)
        return 1;
    auto *begin = find<const char *()>(library, "gcr_mock_prompter_start");
    auto *accept = find<void(const char *, const char *, ...)>(library, "gcr_mock_prompter_expect_password_ok");
    auto *decline = find<void()>(library, "gcr_mock_prompter_expect_password_cancel");
    auto *delay = find<void(unsigned)>(library, "gcr_mock_prompter_set_delay_msec");
    if (!begin || !accept || !decline || !delay)
        return 1;

    const std::string_view who = argv[1];
    const char *name = begin();
    if (who == "slow" || who == "absent")
        delay(who == "slow" ? slowMs : hourMs);
    if (who == "declining-at-first")
        decline();
    for (int i = 0; i < manyTimes; ++i) {
        if (who == "declining")
            decline();
        else
            accept(argv[2], nullptr);
    }
    std::puts(name);
    std::fflush(stdout);
    for (;;)
        ::pause();
}
