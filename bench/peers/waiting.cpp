// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <Poco/Net/PollSet.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include "contest.h"
#include "waitthings.h"

namespace {

using things::Kind, things::KindOf;

constexpr std::size_t Sizes[] = {1, 8, 10, 64, 100, 1000};

// Each waits for things of its kind, which are made once and for all.
class BareList {
public:
    using Things = things::Descriptors;
    BareList(const Things& things, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            entries.push_back({things[i], POLLIN, 0});
    }
    std::size_t Wait() {
        if (poll(entries.data(), entries.size(), -1) < 1)
            std::abort();
        std::size_t at = 0;
        while (entries[at].revents == 0)
            ++at;
        return at;
    }

private:
    std::vector<pollfd> entries;
};

class BareSet {
public:
    using Things = things::Descriptors;
    BareSet(const Things& things, std::size_t count) : set(epoll_create1(EPOLL_CLOEXEC)) {
        for (std::size_t i = 0; i < count; ++i) {
            epoll_event wanted{};
            wanted.events = EPOLLIN;
            wanted.data.u64 = i;
            plain::Must(epoll_ctl(set.Get(), EPOLL_CTL_ADD, things[i], &wanted));
        }
    }
    std::size_t Wait() {
        epoll_event ready{};
        plain::Must(epoll_wait(set.Get(), &ready, 1, -1));
        return ready.data.u64;
    }

private:
    plain::Socket set;
};

class Asio {
public:
    using Things = things::Descriptors;
    Asio(const Things& things, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            if (KindOf(i, count) == Kind::Socket)
                events.emplace_back(Socket(Context(), Tcp::v4(), things[i]));
            else
                events.emplace_back(Descriptor(Context(), things[i]));
        for (std::size_t i = 0; i < count; ++i)
            Watch(i);
    }
    Asio(const Asio&) = delete;
    Asio& operator=(const Asio&) = delete;
    ~Asio() {
        for (auto& event : events)
            std::visit([](auto& thing) { thing.release(); }, event);
        Context().poll(); // the handlers of what was called off
    }
    std::size_t Wait() {
        if (fired != none)
            Watch(std::exchange(fired, none));
        Context().restart();
        while (fired == none)
            Context().run_one();
        return fired;
    }

private:
    using Tcp = boost::asio::ip::tcp;
    using Socket = Tcp::socket;
    using Descriptor = boost::asio::posix::stream_descriptor;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// For one thread alone, without locks.
    static boost::asio::io_context& Context() {
        static boost::asio::io_context context(BOOST_ASIO_CONCURRENCY_HINT_UNSAFE);
        return context;
    }
    void Watch(std::size_t at) {
        const auto note = [this, at](const boost::system::error_code& failure) {
            if (!failure)
                fired = at;
        };
        std::visit([&](auto& thing) { thing.async_wait(thing.wait_read, note); }, events[at]);
    }
    std::vector<std::variant<Socket, Descriptor>> events;
    std::size_t fired = none;
};

class PocoSet {
public:
    using Things = things::PocoSockets;
    PocoSet(const Things& things, std::size_t count) : sockets(things.all), last(count - 1) {
        for (const auto& socket : sockets)
            set.add(socket, Poco::Net::PollSet::POLL_READ);
    }
    /// It tells which socket is ready, not which one in order.
    std::size_t Wait() {
        const auto ready = set.poll(Poco::Timespan(60, 0));
        return ready.size() == 1 && ready.begin()->first == sockets[last] ? last : 0;
    }

private:
    const std::vector<Poco::Net::StreamSocket>& sockets;
    std::size_t last;
    Poco::Net::PollSet set;
};

class OurEvents {
public:
    using Things = things::OurThings;
    OurEvents(const Things& things, std::size_t count) {
        owned.reserve(count);
        events.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            owned.push_back(things.EventOf(i, count));
            events.push_back(owned.back().get());
        }
    }
    std::size_t Wait() {
        return static_cast<std::size_t>(
            zelEvent::WaitAny(events.data(), static_cast<unsigned int>(events.size()), -1));
    }

protected:
    std::vector<std::unique_ptr<zelEvent>> owned;
    std::vector<zelEvent*> events;
};

class OurSet : OurEvents {
public:
    using OurEvents::Things;
    OurSet(const Things& things, std::size_t count) : OurEvents(things, count) {
        for (zelEvent* const event : events)
            if (!set.Add(event))
                std::abort();
    }
    /// It tells which event has fired, not which one in order.
    std::size_t Wait() { return set.Wait(-1) == events.back() ? events.size() - 1 : 0; }

private:
    zelEventSet set;
};

template <typename Waiter>
const typename Waiter::Things& ThingsFor(std::size_t count) {
    static std::map<std::size_t, typename Waiter::Things> all;
    return all.try_emplace(count, count).first->second;
}

/// Waits again and again with a waiter that is made before.
template <typename Waiter>
void Kept(const char* measure, const char* contender) {
    for (const std::size_t count : Sizes)
        contest::Contend({measure, count}, contender, [=](benchmark::State& state) {
            Waiter waiter(ThingsFor<Waiter>(count), count);
            for (auto _ : state)
                if (waiter.Wait() != count - 1)
                    return state.SkipWithError("the wrong event");
        });
}

template <typename Waiter>
void MadeForEach(const char* contender) {
    for (const std::size_t count : Sizes)
        contest::Contend({"events made for one wait", count}, contender,
                         [=](benchmark::State& state) {
                             const typename Waiter::Things& things = ThingsFor<Waiter>(count);
                             for (auto _ : state)
                                 if (Waiter(things, count).Wait() != count - 1)
                                     return state.SkipWithError("the wrong event");
                         });
}

} // namespace

void Contestants() {
    rlimit most{};
    if (getrlimit(RLIMIT_NOFILE, &most) != 0)
        std::abort();
    most.rlim_cur = most.rlim_max;
    plain::Must(setrlimit(RLIMIT_NOFILE, &most));
    constexpr const char* InSet = "events in a set";
    Kept<OurSet>(InSet, contest::Plinth);
    Kept<PocoSet>(InSet, "POCO PollSet");
    Kept<Asio>(InSet, "boost::asio");
    Kept<BareSet>(InSet, contest::SystemCalls);
    constexpr const char* InList = "events in a list";
    Kept<OurEvents>(InList, contest::Plinth);
    Kept<BareList>(InList, contest::SystemCalls);
    MadeForEach<OurEvents>(contest::Plinth);
    MadeForEach<PocoSet>("POCO PollSet");
    MadeForEach<Asio>("boost::asio");
    MadeForEach<BareList>(contest::SystemCalls);
}
