// The desktop keyring, asked on a thread that can be given up.

#include "keyring.h"

#include "keyring_request.h"
#include "libsecret.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

using Clock = std::chrono::steady_clock;

/// For the thread to end after it was told to; only one that hangs takes longer.
constexpr std::chrono::milliseconds graceAfterCancel{100};

/// A prompt is shown by a program of the desktop, to which Qt's "offscreen" and the like mean nothing.
bool canBePrompted()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

/// A request on its way: shared by the thread that carries it out and the one that waits.
class Keyring::Errand {
public:
    Errand(KeyringRequest request, std::chrono::milliseconds patience, std::chrono::milliseconds person)
        : request(std::move(request))
        , person(person)
        , deadline(Clock::now() + patience)
    {
    }

    void carryOut();
    /// False when the deadline passed first. The errand is then given up.
    bool wait();
    bool hasEnded();
    /// The last thing that was waited for is a person's answer.
    bool waitsForPerson();
    /// Of an errand that has ended.
    SecretAnswer takeAnswer() { return std::move(answer); }

private:
    SecretAnswer ask();
    bool askingPerson(bool begins);

    const KeyringRequest request;
    const std::chrono::milliseconds person;

    std::mutex mutex;
    std::condition_variable changed;
    Clock::time_point deadline;
    Clock::duration leftForService{}; ///< When a person began to be asked.
    bool personIsAsked = false;
    GCancellable *cancellable = nullptr; ///< While there is something to cancel.
    bool givenUp = false;
    bool ended = false;
    SecretAnswer answer;
};

void Keyring::Errand::carryOut()
{
    SecretAnswer got = ask();
    const std::scoped_lock lock(mutex);
    answer = std::move(got);
    ended = true;
    changed.notify_all();
}

SecretAnswer Keyring::Errand::ask()
{
    if (!hasSessionBus())
        return {SecretOutcome::Absent, {}, u"нет сеансовой шины D-Bus"_s};
    const LibSecret *library = LibSecret::get();
    if (!library)
        return {SecretOutcome::Absent, {}, u"библиотека libsecret не установлена"_s};
    {
        const std::scoped_lock lock(mutex);
        if (givenUp)
            return {};
        cancellable = library->g_cancellable_new();
    }
    SecretAnswer got = askKeyring(request, cancellable, [this](bool begins) { return askingPerson(begins); });
    const std::scoped_lock lock(mutex);
    library->g_object_unref(std::exchange(cancellable, nullptr));
    return got;
}

bool Keyring::Errand::askingPerson(bool begins)
{
    const std::scoped_lock lock(mutex);
    if (givenUp)
        return false;
    personIsAsked = begins;
    if (!canBePrompted())
        return true;
    if (begins) {
        leftForService = deadline - Clock::now();
        deadline += person;
    } else {
        deadline = Clock::now() + leftForService;
    }
    changed.notify_all();
    return true;
}

bool Keyring::Errand::wait()
{
    std::unique_lock lock(mutex);
    while (!ended && Clock::now() < deadline)
        changed.wait_until(lock, deadline);
    if (ended)
        return true;
    givenUp = true;
    // A prompt is left to the person, whose answer then counts for the next operation. To take it back would end
    // gnome-keyring with a failed assertion, for all programs of the desktop.
    if (personIsAsked)
        return false;
    if (cancellable)
        LibSecret::get()->g_cancellable_cancel(cancellable);
    changed.wait_for(lock, graceAfterCancel, [this] { return ended; });
    return false;
}

bool Keyring::Errand::hasEnded()
{
    const std::scoped_lock lock(mutex);
    return ended;
}

bool Keyring::Errand::waitsForPerson()
{
    const std::scoped_lock lock(mutex);
    return personIsAsked;
}

/// What to say of an errand that was given up.
SecretAnswer Keyring::noAnswer(Errand &errand)
{
    if (errand.waitsForPerson())
        return {SecretOutcome::Locked, {}, u"связка ключей заблокирована, запрос пароля остался без ответа"_s};
    return {SecretOutcome::Silent, {}, u"служба секретов не отвечает"_s};
}

Keyring::Keyring(const KeyringLimits &limits)
    : limits(limits)
{
}

Keyring::~Keyring() = default;

SecretAnswer Keyring::read(const QString &target)
{
    return run({KeyringRequest::Action::Read, target.toUtf8(), {}, !wasDeclined});
}

SecretAnswer Keyring::save(const QString &target, SecretBytes secret)
{
    return run({KeyringRequest::Action::Save, target.toUtf8(), std::move(secret), true});
}

SecretAnswer Keyring::remove(const QString &target)
{
    return run({KeyringRequest::Action::Remove, target.toUtf8(), {}, true});
}

SecretAnswer Keyring::run(KeyringRequest request)
{
    // A thread that can't be cancelled would be joined by another with every call.
    if (unfinished && !unfinished->hasEnded())
        return noAnswer(*unfinished);
    unfinished.reset();

    const auto errand
        = std::make_shared<Errand>(std::move(request), wasSilent ? limits.repeated : limits.answer, limits.person);
    std::thread thread;
    try {
        thread = std::thread([errand] { errand->carryOut(); });
    } catch (const std::system_error &) {
        return {SecretOutcome::Failed, {}, u"не удалось создать поток для службы секретов"_s};
    }
    const bool answered = errand->wait();
    if (errand->hasEnded()) {
        thread.join();
    } else {
        thread.detach();
        unfinished = errand;
    }
    SecretAnswer answer = answered ? errand->takeAnswer() : noAnswer(*errand);
    wasSilent = answer.outcome == SecretOutcome::Silent;
    wasDeclined = answer.outcome == SecretOutcome::Locked;
    return answer;
}

} // namespace vesk
