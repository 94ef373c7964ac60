// The one base of every Core Foundation object on Linux.
//
// Every opaque tag of the public headers (struct __CFString and the others) derives from Object,
// first and alone, so that a CFTypeRef is the address of an Object. Ownership is Apple's: Create
// and Copy hand over one reference, Get lends; CFRetain and CFRelease are Retain and Release here.
// Inside the layer a reference that is owned is held by a Ref (below), never by a bare pointer.
//
// Threads: the reference count is atomic; what an object holds belongs to its own type's rules.
// Failure: a null reference, or one of another type, stops the program with a message that names
// the call and both types, because on the Mac it would crash later and elsewhere.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace frameworks {

// One per type, constant-initialised; its number is the CFTypeID, so that no type has to be
// registered at start-up.
struct Type {
    CFTypeID id;
    const char* name;
};

extern const Type kStringType;
extern const Type kDataType;
extern const Type kArrayType;
extern const Type kDictionaryType;
extern const Type kNumberType;
extern const Type kBooleanType;
extern const Type kURLType;
extern const Type kRunLoopType;
extern const Type kRunLoopSourceType;
extern const Type kRunLoopObserverType;
extern const Type kSocketType;
extern const Type kTimeZoneType;
extern const Type kDynamicStoreType;
extern const Type kMachPortType;
extern const Type kEventType;
extern const Type kBundleType;
extern const Type kDateType;
extern const Type kReadStreamType;
extern const Type kWriteStreamType;
extern const Type kDataProviderType;
extern const Type kColorSpaceType;
extern const Type kImageType;
extern const Type kImageDestinationType;

// Whether an object lives until its last reference goes, or for as long as the process does.
enum class Lifetime { kCounted, kImmortal };

class Object {
  public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const Type& ObjectType() const { return type; }
    void Retain() const;
    void Release() const;
    // Adds a reference unless the last one has gone already. For whoever knows an object without
    // owning it, and is told by its destructor to forget it.
    bool TryRetain() const;

    // Only called with an object of the same type.
    virtual bool Equals(const Object& other) const { return this == &other; }
    virtual CFHashCode Hash() const { return reinterpret_cast<CFHashCode>(this); }
    // The text of the object inside what CFShow prints: "<CFThing 0x1234>" and, for most types,
    // "{what it holds}".
    virtual std::string Describe() const;

  protected:
    // How every Describe begins.
    std::string DescribeHead() const;

    constexpr explicit Object(const Type& itsType, Lifetime lifetime = Lifetime::kCounted)
        : type(itsType), references(lifetime == Lifetime::kCounted ? 1 : kImmortalCount) {}
    virtual ~Object() = default;

  private:
    static constexpr std::int32_t kImmortalCount = -1;

    const Type& type;
    mutable std::atomic<std::int32_t> references;
};

// Stops the program with "CALL: WHY" on standard error: CALL was used in a way that has no meaning.
[[noreturn]] void Misuse(const char* call, const std::string& why) noexcept;

// Stops the program: CALL was handed a reference of another type, or none.
[[noreturn]] void WrongReference(const char* call, const Type& expected,
                                 const Object* actual) noexcept;

// The object behind a reference of any type; a null reference stops the program.
const Object& AnyObject(CFTypeRef reference, const char* call);

// The one checked cast from a public reference to the object behind it. T::kType is the type's
// record.
template <typename T>
const T& Checked(CFTypeRef reference, const char* call) {
    const Object* object = static_cast<const Object*>(reference);
    if (object == nullptr || &object->ObjectType() != &T::kType) {
        WrongReference(call, T::kType, object);
    }
    return static_cast<const T&>(*object);
}

// The same for calls that change the object.
template <typename T>
T& CheckedMutable(CFTypeRef reference, const char* call) {
    return const_cast<T&>(Checked<T>(reference, call));
}

// Owns one reference to a T (an opaque tag's struct). Move-only, like the ownership it stands for.
template <typename T>
class Ref {
  public:
    Ref() = default;
    // Takes over a reference that the caller owns (the result of a Create or Copy, or of new).
    static Ref Adopt(T* object) { return Ref(object); }
    // Adds a reference of its own to a borrowed object.
    static Ref Retain(T* object) {
        if (object != nullptr) {
            object->Retain();
        }
        return Ref(object);
    }
    Ref(Ref&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        std::swap(object, other.object);
        return *this;
    }
    ~Ref() {
        if (object != nullptr) {
            object->Release();
        }
    }

    T* Get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    explicit operator bool() const { return object != nullptr; }
    // Gives the reference up to the caller.
    T* Leak() { return std::exchange(object, nullptr); }

  private:
    explicit Ref(T* itsObject) : object(itsObject) {}

    T* object = nullptr;
};

}  // namespace frameworks
