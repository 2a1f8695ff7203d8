/* Closures in a flat interface.
 *
 * A handler is a small record of four fields, one type for each signature:
 *   invoke    called with the context, then with what the function that takes the handler says;
 *   context   the closure's state;
 *   copy      gives a copy of the context for those who keep the handler: NULL from it says that memory ran out;
 *   dispose   takes a context that copy gave.
 * Who only calls the handler before it returns uses the context as it is. Who keeps it keeps a copy of the context
 * until it disposes of it; without `copy`, the context itself, which must then live as long. `dispose` may be NULL.
 *
 * C++ programs pass a lambda instead: each function that takes a handler has an overload for any callable. What is kept
 * is a copy of the callable on the heap. */
#ifndef PEVRIN_HANDLER_H
#define PEVRIN_HANDLER_H

#include <pevrin/base.h>

#ifdef __cplusplus
#include <concepts>
#include <new>

namespace pv {

template <class F, class... Arguments>
concept Callable = std::copy_constructible<F> && std::invocable<const F &, Arguments...>;

template <class Handler, class F, class Result, class... Arguments>
Handler makeHandler(const F &callable, Result (*)(void *, Arguments...)) {
  Handler handler{};
  handler.invoke = [](void *context, Arguments... arguments) -> Result {
    return static_cast<Result>((*static_cast<const F *>(context))(arguments...));
  };
  handler.context = const_cast<F *>(&callable);
  handler.copy = [](void *context) -> void * { return new (std::nothrow) F(*static_cast<const F *>(context)); };
  handler.dispose = [](void *context) { delete static_cast<F *>(context); };
  return handler;
}

/* The handler that calls a callable, which stays the caller's: the record is good as long as the callable. */
template <class Handler, class F>
Handler handlerFor(const F &callable) {
  return makeHandler<Handler>(callable, decltype(Handler::invoke){});
}

}  // namespace pv
#endif

#endif
