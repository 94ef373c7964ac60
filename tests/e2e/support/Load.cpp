#include "support/Load.h"

#include "support/Waiting.h"

Load::~Load() {
    stopping = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void Load::Add(Client client, std::string question, std::string answer) {
    threads.emplace_back(
        [this, connected = std::move(client), asked = std::move(question),
         expected = std::move(answer)]() mutable { Run(std::move(connected), asked, expected); });
}

void Load::Run(Client client, const std::string& question, const std::string& answer) {
    try {
        while (!stopping && client.TrySend(question + "|")) {
            const std::string got = client.Receive();
            if (got.rfind(answer, 0) != 0) {
                const std::lock_guard<std::mutex> lock(wrongMutex);
                wrong = "\"" + question + "\" was answered \"" + got + "\"";
                return;
            }
            ++answers;
        }
    } catch (const Failed&) {
        // The service has gone in the midst of an answer: what the test that ends it wants.
    }
}

void Load::Stop() {
    stopping = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
    if (!wrong.empty()) {
        throw Failed(wrong);
    }
}
