// Carries lines from the xboard adapter to a thread of its own, which hands them to the UCI
// interpreter or the reporter in the order they were posted. A UCI `stop` waits for the search
// to end; on this thread it never holds up the reading of standard input.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

class Reporter;
class UciInterpreter;

constexpr int QueueSlotCount = 64;
constexpr size_t QueueThreadStackBytes = 100000;
// Slots 0 to 2 take the long `position` lines of a long game, 3 to 5 middling lines.
constexpr size_t LargeSlotBytes = 75000;
constexpr size_t MediumSlotBytes = 2000;
constexpr size_t SmallSlotBytes = 1000;

enum MessageKind : int32_t {
    MessageCommand = 0,  // a UCI line for the interpreter
    MessageLine = 1,     // a line written as it stands
    MessageError = 2,    // an error with an optional detail
    MessageInfo = 3,
};

struct QueueMessage {
    size_t capacity = 0;
    int32_t kind = MessageCommand;
    bool inUse = false;
    // The text, its terminator, then the detail and its terminator; allocated once.
    std::unique_ptr<char[]> text;
    bool hasDetail = false;
};

class CommandQueue {
  public:
    CommandQueue(UciInterpreter* interpreter, Reporter* reporter);
    // Stops the thread; messages still waiting are dropped.
    ~CommandQueue();
    CommandQueue(const CommandQueue&) = delete;
    CommandQueue& operator=(const CommandQueue&) = delete;

    // False once the queue is stopping. `detail` may be null.
    bool post(const char* text, int32_t kind, const char* detail = nullptr);
    // Ends the thread after the message it is acting on; later posts are refused.
    void shutdown();
    // Blocks until nothing waits and nothing is being acted on, or the queue stops.
    void waitUntilIdle();
    // Messages posted and messages taken up by the thread so far: a message posted as number n
    // has been taken up once takenCount() reaches n.
    uint64_t postedCount();
    uint64_t takenCount();

  private:
    static void* threadEntry(void* queue);
    void run();
    void act(const QueueMessage& message);
    // Under the lock: the next message in order of posting, or null.
    QueueMessage* takeNext(std::unique_ptr<QueueMessage>& overflowHolder);

    std::mutex lock;
    pthread_t thread{};
    bool threadStarted = false;
    // Stands in for the auto-reset event: the thread waits on it for work or the stop.
    std::condition_variable wakeUp;
    std::condition_variable idle;
    UciInterpreter* interpreter;
    Reporter* reporter;
    QueueMessage slots[QueueSlotCount];
    QueueMessage* ring[QueueSlotCount] = {};
    int32_t head = 0;
    int32_t tail = 0;
    int32_t ringCount = 0;
    // Messages that found no free slot big enough: allocated one by one, acted on in their turn
    // after the ring. While any wait here every new message joins them, so the order holds.
    std::deque<std::unique_ptr<QueueMessage>> overflow;
    bool busy = false;
    bool stopping = false;
    uint64_t posted = 0;
    uint64_t taken = 0;
};
