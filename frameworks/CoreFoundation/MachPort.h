// The object behind CFMachPortRef: a socket whose other end is another process.
//
// A derived class reads what has come, in Receive, and says whether more can follow. It is called
// on the run loop's thread without a lock held, and may be called again within itself when somebody
// whom it tells runs the loop.
//
// Owner: whoever made it, and its source. Threads: any. Failure: the port becomes invalid when the
// other end is gone.
#pragma once

#include <CoreFoundation/CFMachPort.h>

#include <mutex>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/RunLoopSource.h"
#include "Support/UniqueDescriptor.h"

struct __CFMachPort : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kMachPortType;

    bool IsValid() noexcept;
    void Invalidate() noexcept;
    // Nothing when the port is invalid.
    frameworks::Ref<__CFRunLoopSource> TheSource();

    std::string Describe() const override;

  protected:
    enum class More { kMayCome, kNever };

    // The socket does not block.
    explicit __CFMachPort(frameworks::UniqueDescriptor itsSocket);
    ~__CFMachPort() override;

    virtual More Receive(int socket) = 0;

    // Between two things that Receive hands on: whether anybody still wants them.
    bool IsStillWanted() const noexcept;
    // For Receive when a read brought nothing: whether that is the end, and not an empty packet.
    static bool HasEnded(int socket) noexcept;

  private:
    struct Source;

    void Serve();

    mutable std::mutex mutex;
    // Closed when the port is invalid and nobody reads any more.
    frameworks::UniqueDescriptor channel;
    bool valid = true;
    int readers = 0;
    // Not owned: the source owns the port.
    Source* source = nullptr;
};
