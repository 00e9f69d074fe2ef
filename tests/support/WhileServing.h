// Test support: a blocking call made as another process would make it, on a
// thread of its own, while this thread's event loop keeps serving — for
// talking to a server that lives in the test's own thread.
#pragma once

#include <QCoreApplication>

#include <chrono>
#include <future>

template <typename Call> auto whileServing(Call call)
{
    auto result = std::async(std::launch::async, std::move(call));
    while (result.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready)
        QCoreApplication::processEvents();
    return result.get();
}
