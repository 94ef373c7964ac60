// Tablets that are plugged in and out all the time, with devices of other makers among them. Each
// time, whoever has the key has to be told the new list; as long as it goes on, somebody with the
// key has to come again and again. Throws Failed.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Worker.h"

class DeviceLoad : public Worker {
  public:
    explicit DeviceLoad(World& itsWorld) : Worker(itsWorld, "devices") {}

    // A client with the key has been told LIST: in answer to the key, or because it has changed. On
    // every thread.
    void Told(const std::string& list, bool isAnswerToTheKey);

  private:
    void Step() override;
    void PartWithAll() override;
    void TellAChange();
    void Change();
    std::string List() const;

    // What is plugged in, as the names of its ports and the models.
    std::vector<std::pair<std::string, std::string>> plugged;
    int lastPort = 0;

    std::mutex mutex;
    // All lists there have been, and the last one that was told.
    std::vector<std::string> lists{""};
    std::size_t told = 0;
};
