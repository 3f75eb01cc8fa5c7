// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

struct CEventBlock;

/// A handle onto an event that threads wait for. Copies share the event, and so do handles made with the same name
/// anywhere in the module; it goes with its last handle.
///
/// Any thread may call any operation at any time, except that a handle is assigned, created anew and destroyed by its
/// owner while nobody else uses that handle. A thread whose Wait returned because of Set may destroy the event at once,
/// even if Set has not returned yet. Nothing throws. Without memory a handle has no event, and refuses everything.
class CEvent {
public:
    static constexpr unsigned int kForever = 0xFFFFFFFF;  ///< a time-out that never comes
    static constexpr unsigned int kSignalled = 0;
    static constexpr unsigned int kTimeout = 102;
    static constexpr unsigned int kFailed = 0xFFFFFFFF;

    /// @param manualReset  true: stays signalled until Reset and releases every waiter; false: each Set releases one
    /// @param name  an existing event of that name is shared and keeps its state and kind; null or "" makes an event of
    ///              one's own
    CEvent(bool initialState, bool manualReset, const char* name = nullptr);
    CEvent(const CEvent& other);
    CEvent& operator=(const CEvent& other);
    ~CEvent();

    /// Gives the event a new state and kind and opens a closed handle again. A handle without event gets one.
    /// @param name  used only by a handle without event
    bool Create(bool initialState, bool manualReset, const char* name = nullptr);

    /// Kept for callers that open events by name; a handle is open from the start. Nothing is used.
    /// @return true
    bool Open(const char* name, unsigned int access, bool inherit);
    bool IsOpen() const { return !closed_; }

    /// Signals the event, lets all go who wait for it and ends the use of this handle; others of the same event work
    /// on.
    /// @return false when the handle has no event or is closed already
    bool Close();

    /// These return false on a handle that has no event or is closed.
    ///
    /// Who waits when Set comes is released, whatever follows at once: all with manual reset, else the one who waits
    /// longest, which leaves the event unsignalled.
    bool Set() const;
    /// Releases who waits now (all, or one with automatic reset) and leaves the event unsignalled.
    bool Pulse() const;
    bool Reset() const;
    /// @return whether it is signalled; nothing is consumed
    bool IsSet() const;

    /// @param timeoutMs  milliseconds, or kForever
    /// @param trace  prints the start of the wait, too
    /// @return kSignalled, kTimeout, or kFailed (no event, closed handle, system error)
    unsigned int Wait(unsigned int timeoutMs, bool trace = false) const;

private:
    void Attach(bool initialState, bool manualReset, const char* name);
    void Share(const CEvent& other);
    static void Release(CEventBlock* block);
    static void Drop(CEventBlock* block);

    CEventBlock* block_ = nullptr;
    std::atomic<bool> closed_{false};
};
