// SPDX-License-Identifier: Apache-2.0
#include "service/loop/Inbox.h"

#include <cerrno>
#include <exception>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>

#include "service/loop/Journal.h"

CInbox::CInbox(CLoop& loop) : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event_) {
        throw std::system_error(errno, std::generic_category(), "cannot make an event descriptor");
    }
    source_ = loop.Watch(event_.Get(), EPOLLIN, [this] { Drain(); });
}

void CInbox::Post(std::function<void()> work) {
    {
        const std::lock_guard guard(lock_);
        waiting_.push_back(std::move(work));
    }
    ::eventfd_write(event_.Get(), 1);
}

void CInbox::Drain() {
    eventfd_t count = 0;
    ::eventfd_read(event_.Get(), &count);
    std::deque<std::function<void()>> work;
    {
        const std::lock_guard guard(lock_);
        work.swap(waiting_);
    }
    for (const auto& one : work) {
        try {
            one();
        } catch (const std::exception& error) {  // the others are done all the same
            Journal(3, error.what());
        }
    }
}
