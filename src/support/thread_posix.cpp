// Threads and counting semaphores on POSIX, for the preprocessor that reads
// ahead on a thread of its own.
#include "support/platform.h"

#include <cerrno>
#include <new>
#include <pthread.h>
#include <semaphore.h>

namespace tarn {

struct PlatThread {
    pthread_t id;
    void (*body)(void*);
    void* arg;
};

struct PlatSemaphore {
    sem_t sem;
};

namespace {

void* thread_entry(void* t) {
    auto* thread = static_cast<PlatThread*>(t);
    thread->body(thread->arg);
    return nullptr;
}

} // namespace

PlatThread* plat_thread_start(void (*body)(void*), void* arg, const char* name) {
    auto* t = new (std::nothrow) PlatThread{pthread_t{}, body, arg};
    if (!t) return nullptr;
    // As much stack as a main thread has: the preprocessor's recursion
    // goes as deep on this thread as on the caller's.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, THREAD_STACK_BYTES);
    int e = pthread_create(&t->id, &attr, thread_entry, t);
    pthread_attr_destroy(&attr);
    if (e != 0) {
        delete t;
        return nullptr;
    }
#ifdef __GLIBC__
    pthread_setname_np(t->id, name);
#else
    (void)name;
#endif
    return t;
}

void plat_thread_join(PlatThread* t) {
    if (!t) return;
    pthread_join(t->id, nullptr);
    delete t;
}

PlatSemaphore* plat_semaphore_create(uint32_t initial) {
    auto* s = new (std::nothrow) PlatSemaphore;
    if (s && sem_init(&s->sem, 0, initial) != 0) {
        delete s;
        return nullptr;
    }
    return s;
}

void plat_semaphore_destroy(PlatSemaphore* s) {
    if (!s) return;
    sem_destroy(&s->sem);
    delete s;
}

void plat_semaphore_post(PlatSemaphore* s) {
    sem_post(&s->sem);
}

void plat_semaphore_wait(PlatSemaphore* s) {
    while (sem_wait(&s->sem) != 0 && errno == EINTR) {
    }
}

} // namespace tarn
