// SPDX-License-Identifier: Apache-2.0
// The one counted pointer to COM interfaces, on both platforms.
#pragma once

#include <guiddef.h>

#include <cstddef>
#include <type_traits>
#include <utility>

namespace lumivora {

/** Shared ownership of a COM object, counted by the object itself.
 *
 *  There is deliberately no operator&: put() says that the old reference goes.
 *
 *  @thread reentrant: the object's count is thread-safe, one ComPtr is not
 */
template <typename T>
class ComPtr
{
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}

    /** Takes a reference of its own; attach() takes over the caller's instead.
     *  @param shared  may be null */
    explicit ComPtr(T *shared) noexcept : _pointer(shared) { addRef(); }

    ComPtr(const ComPtr &other) noexcept : _pointer(other._pointer) { addRef(); }
    ComPtr(ComPtr &&other) noexcept : _pointer(other.detach()) {}

    /** From a derived interface, as ID2D1Bitmap1 to ID2D1Image. */
    template <typename U>
        requires std::is_convertible_v<U *, T *>
    ComPtr(const ComPtr<U> &other) noexcept : _pointer(other.get())
    {
        addRef();
    }
    template <typename U>
        requires std::is_convertible_v<U *, T *>
    ComPtr(ComPtr<U> &&other) noexcept : _pointer(other.detach())
    {}

    ~ComPtr() { release(); }

    ComPtr &operator=(ComPtr other) noexcept
    {
        std::swap(_pointer, other._pointer);
        return *this;
    }

    /** Borrowed, may be null. */
    [[nodiscard]] T *get() const noexcept { return _pointer; }
    [[nodiscard]] T *operator->() const noexcept { return _pointer; }
    [[nodiscard]] T &operator*() const noexcept { return *_pointer; }
    [[nodiscard]] explicit operator bool() const noexcept { return _pointer != nullptr; }

    /** Releases, then gives the place for a function's result. */
    [[nodiscard]] T **put() noexcept
    {
        release();
        return &_pointer;
    }
    /** put() for functions that return any interface through a void pointer. */
    [[nodiscard]] void **putVoid() noexcept { return reinterpret_cast<void **>(put()); }

    /** Takes over one reference of the caller. */
    void attach(T *owned) noexcept
    {
        release();
        _pointer = owned;
    }
    /** Hands the reference to the caller. */
    [[nodiscard]] T *detach() noexcept { return std::exchange(_pointer, nullptr); }

    /** Another interface of the object; empty when it has none, or when this is empty. */
    template <typename U>
    [[nodiscard]] ComPtr<U> query() const noexcept
    {
        ComPtr<U> result;
        if (_pointer != nullptr) {
            // On failure the object writes null, so the result says it all.
            static_cast<void>(_pointer->QueryInterface(__uuidof(U), result.putVoid()));
        }
        return result;
    }

    friend bool operator==(const ComPtr &left, const ComPtr &right) noexcept = default;

private:
    void addRef() const noexcept
    {
        if (_pointer != nullptr) {
            _pointer->AddRef();
        }
    }
    void release() noexcept
    {
        // The object's destructor may come back to this pointer: it is empty by then.
        if (T *const old = std::exchange(_pointer, nullptr); old != nullptr) {
            old->Release();
        }
    }

    T *_pointer = nullptr;
};

} // namespace lumivora
