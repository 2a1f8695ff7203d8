// The pool is Asio's, whose headers stay inside this file. It is never destroyed: a program may end while
// calls run.
#include "src/work_pool.hpp"

#define ASIO_STANDALONE 1
#define ASIO_NO_EXCEPTIONS 1
#define ASIO_NO_TYPEID 1
#include <asio/detail/config.hpp>
#include <cstdio>
#include <cstdlib>

namespace asio::detail {

// Only making the pool can come here: the system refused a thread or memory.
template <class Exception>
[[noreturn]] void throw_exception(const Exception& exception
#ifdef ASIO_SOURCE_LOCATION_PARAM
                                      ASIO_SOURCE_LOCATION_PARAM
#endif
) {
  std::fprintf(stderr, "Bedra: no threads for work queues: %s\n", exception.what());
  std::abort();
}

}  // namespace asio::detail

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <asio/defer.hpp>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <thread>
#include <utility>

namespace {

// Calls may wait for a moment, so that a machine with few processors gets some more threads than it has of
// them.
constexpr unsigned kFewestThreads = 4;
constexpr unsigned kMostThreads = 16;

// While it lives, signals are blocked, and so they are on the threads made: they are for the program's own.
struct SignalsBlocked {
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  sigset_t before;
};

asio::thread_pool* makePool() {
  SignalsBlocked blocked;
  return new asio::thread_pool(std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads));
}

asio::thread_pool& sharedPool() {
  static asio::thread_pool& pool = *makePool();
  return pool;
}

void nameThisThread() {
  static thread_local bool named = false;
  if (!named) pthread_setname_np(pthread_self(), "bedra-work");
  named = true;
}

template <class T>
struct RoomAllocator {
  using value_type = T;
  explicit RoomAllocator(br::WorkPoolRoom* given) : room(given) {}
  template <class U>
  RoomAllocator(const RoomAllocator<U>& other) : room(other.room) {}

  T* allocate(size_t count) {
    static_assert(alignof(T) <= alignof(br::WorkPoolRoom));
    if (count * sizeof(T) > sizeof *room) std::abort();
    return reinterpret_cast<T*>(room);
  }
  void deallocate(T*, size_t) {}
  template <class U>
  bool operator==(const RoomAllocator<U>& other) const {
    return room == other.room;
  }

  br::WorkPoolRoom* room;
};

struct Task {
  using allocator_type = RoomAllocator<char>;
  allocator_type get_allocator() const { return allocator_type(room); }
  void operator()() {
    nameThisThread();
    task(context);
  }

  void (*task)(void*);
  void* context;
  br::WorkPoolRoom* room;
};

}  // namespace

void br::runOnWorkPool(void (*task)(void*), void* context, WorkPoolRoom& room, WorkPoolTurn turn) {
  asio::thread_pool& pool = sharedPool();
  Task ours{task, context, &room};
  if (turn == WorkPoolTurn::kSoon)
    asio::post(pool.get_executor(), std::move(ours));
  else
    asio::defer(pool.get_executor(), std::move(ours));
}

bool br::addWorkPoolThread() {
  SignalsBlocked blocked;
  pthread_t thread;
  auto join = [](void* pool) -> void* {
    static_cast<asio::thread_pool*>(pool)->attach();
    return nullptr;
  };
  if (pthread_create(&thread, nullptr, join, &sharedPool()) != 0) return false;
  pthread_detach(thread);
  return true;
}
