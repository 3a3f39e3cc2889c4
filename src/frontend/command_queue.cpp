#include "frontend/command_queue.h"

#include <chrono>
#include <cstring>

#include "frontend/reporter.h"
#include "frontend/uci_interpreter.h"

namespace {

size_t slotCapacity(int index) {
    if (index < 3) return LargeSlotBytes;
    if (index < 6) return MediumSlotBytes;
    return SmallSlotBytes;
}

void store(QueueMessage& message, const char* text, int32_t kind, const char* detail) {
    const size_t textLength = std::strlen(text);
    std::memcpy(message.text.get(), text, textLength + 1);
    message.hasDetail = detail != nullptr;
    if (detail) std::memcpy(message.text.get() + textLength + 1, detail, std::strlen(detail) + 1);
    message.kind = kind;
    message.inUse = true;
}

}  // namespace

CommandQueue::CommandQueue(UciInterpreter* interpreterIn, Reporter* reporterIn)
    : interpreter(interpreterIn), reporter(reporterIn) {
    for (int i = 0; i < QueueSlotCount; ++i) {
        slots[i].capacity = slotCapacity(i);
        slots[i].text.reset(new char[slots[i].capacity]);
    }
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return;
    pthread_attr_setstacksize(&attributes, QueueThreadStackBytes);
    threadStarted = pthread_create(&thread, &attributes, threadEntry, this) == 0;
    pthread_attr_destroy(&attributes);
}

CommandQueue::~CommandQueue() {
    shutdown();
}

void CommandQueue::shutdown() {
    {
        std::lock_guard<std::mutex> guard(lock);
        stopping = true;
    }
    wakeUp.notify_all();
    idle.notify_all();
    if (threadStarted) {
        pthread_join(thread, nullptr);
        threadStarted = false;
    }
}

bool CommandQueue::post(const char* text, int32_t kind, const char* detail) {
    const size_t needed = std::strlen(text) + 1 + (detail ? std::strlen(detail) + 1 : 0);
    {
        std::lock_guard<std::mutex> guard(lock);
        if (stopping) return false;
        QueueMessage* slot = nullptr;
        // First fit from the top: short messages take the small slots and leave the large ones
        // for the long lines.
        if (overflow.empty() && ringCount < QueueSlotCount) {
            for (int i = QueueSlotCount - 1; i >= 0; --i) {
                if (!slots[i].inUse && slots[i].capacity >= needed) {
                    slot = &slots[i];
                    break;
                }
            }
        }
        if (slot) {
            store(*slot, text, kind, detail);
            ring[head] = slot;
            head = (head + 1) % QueueSlotCount;
            ++ringCount;
        } else {
            // No slot can take it now: the game must go on, so this one message is allocated.
            auto message = std::make_unique<QueueMessage>();
            message->capacity = needed;
            message->text.reset(new char[needed]);
            store(*message, text, kind, detail);
            overflow.push_back(std::move(message));
        }
        ++posted;
    }
    wakeUp.notify_one();
    return true;
}

void CommandQueue::waitUntilIdle() {
    std::unique_lock<std::mutex> guard(lock);
    while (!stopping && (busy || ringCount > 0 || !overflow.empty()))
        idle.wait_for(guard, std::chrono::milliseconds(100));
}

uint64_t CommandQueue::postedCount() {
    std::lock_guard<std::mutex> guard(lock);
    return posted;
}

uint64_t CommandQueue::takenCount() {
    std::lock_guard<std::mutex> guard(lock);
    return taken;
}

void* CommandQueue::threadEntry(void* queue) {
    static_cast<CommandQueue*>(queue)->run();
    return nullptr;
}

QueueMessage* CommandQueue::takeNext(std::unique_ptr<QueueMessage>& overflowHolder) {
    if (ringCount > 0) {
        QueueMessage* message = ring[tail];
        tail = (tail + 1) % QueueSlotCount;
        --ringCount;
        return message;
    }
    if (overflow.empty()) return nullptr;
    overflowHolder = std::move(overflow.front());
    overflow.pop_front();
    return overflowHolder.get();
}

void CommandQueue::run() {
    std::unique_lock<std::mutex> guard(lock);
    for (;;) {
        wakeUp.wait(guard, [this] { return stopping || ringCount > 0 || !overflow.empty(); });
        if (stopping) break;
        std::unique_ptr<QueueMessage> overflowHolder;
        QueueMessage* message = takeNext(overflowHolder);
        if (!message) continue;
        busy = true;
        ++taken;
        guard.unlock();
        act(*message);
        guard.lock();
        message->inUse = false;
        busy = false;
        if (ringCount == 0 && overflow.empty()) idle.notify_all();
    }
    busy = false;
    idle.notify_all();
}

void CommandQueue::act(const QueueMessage& message) {
    const char* text = message.text.get();
    switch (message.kind) {
        case MessageCommand:
            interpreter->handleCommand(text);
            break;
        case MessageLine:
            reporter->writeLine(text);
            break;
        case MessageError: {
            const char* detail = text + std::strlen(text) + 1;
            reporter->reportError(text, message.hasDetail && *detail ? detail : nullptr);
            break;
        }
        default:
            reporter->reportInfo(text);
            break;
    }
}
