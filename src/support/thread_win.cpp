// Threads and counting semaphores on Windows, for the preprocessor that
// reads ahead on a thread of its own.
#include "support/platform.h"

#include <windows.h>

#include <climits>
#include <new>

namespace tarn {

struct PlatThread {
    HANDLE handle;
    void (*body)(void*);
    void* arg;
};

struct PlatSemaphore {
    HANDLE handle;
};

namespace {

DWORD WINAPI thread_entry(void* t) {
    auto* thread = static_cast<PlatThread*>(t);
    thread->body(thread->arg);
    return 0;
}

} // namespace

PlatThread* plat_thread_start(void (*body)(void*), void* arg, const char*) {
    auto* t = new (std::nothrow) PlatThread{nullptr, body, arg};
    if (!t) return nullptr;
    // As much stack as a main thread has: the preprocessor's recursion
    // goes as deep on this thread as on the caller's. Only reserved.
    t->handle = CreateThread(nullptr, THREAD_STACK_BYTES, thread_entry, t,
                             STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (!t->handle) {
        delete t;
        return nullptr;
    }
    return t;
}

void plat_thread_join(PlatThread* t) {
    if (!t) return;
    WaitForSingleObject(t->handle, INFINITE);
    CloseHandle(t->handle);
    delete t;
}

PlatSemaphore* plat_semaphore_create(uint32_t initial) {
    HANDLE h = CreateSemaphoreW(nullptr, static_cast<LONG>(initial), LONG_MAX, nullptr);
    if (!h) return nullptr;
    auto* s = new (std::nothrow) PlatSemaphore{h};
    if (!s) CloseHandle(h);
    return s;
}

void plat_semaphore_destroy(PlatSemaphore* s) {
    if (!s) return;
    CloseHandle(s->handle);
    delete s;
}

void plat_semaphore_post(PlatSemaphore* s) {
    ReleaseSemaphore(s->handle, 1, nullptr);
}

void plat_semaphore_wait(PlatSemaphore* s) {
    WaitForSingleObject(s->handle, INFINITE);
}

} // namespace tarn
