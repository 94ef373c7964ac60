// The entries of one folder, read at once when the object is made.
//
// For one thread. The entries are those of the moment of reading; they stay valid until the object
// goes. Failure: logged, and the entries that could be read are there.
#pragma once

#include <Carbon/Carbon.h>

#include <vector>

class DirectoryTraverser {
  public:
    // FOLDER is not owned. With SUBTREE above 0 the entries of the folders below come, too.
    DirectoryTraverser(const FSRef* folder, int subtree);
    DirectoryTraverser(const DirectoryTraverser&) = delete;
    DirectoryTraverser& operator=(const DirectoryTraverser&) = delete;

    // The first entry and the one behind the current one, which becomes the current one; null when
    // there is none.
    const FSRef* First();
    const FSRef* Next();
    // Whether the current entry is a folder with something in it. An empty folder is deleted like a
    // file, so it counts as one.
    bool CurrentIsDirectory() const;

  private:
    // Makes room for CAPACITY entries, and forgets those that were there.
    void buildArrays(std::size_t capacity);
    OSStatus readAll();
    const FSRef* current() const;

    std::vector<FSCatalogInfo> infos;
    std::vector<FSRef> references;
    const FSRef* folder;
    int subtree;
    std::size_t index = 0;
    std::size_t count = 0;
};
