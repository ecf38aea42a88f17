#pragma once

#include <string>
#include <unordered_map>
#include <vector>

// The kernel's notices about files and their folders. A folder is watched once for all files in it that are watched.
// **Threads:** one. **Owns:** the inotify descriptor and the watches on it.
class InotifyWatch {
public:
    struct Folder;

    // A watched file, as this class sees it.
    struct Target {
        int m_wd = -1;               // watch on the file; -1 is none
        Folder* m_folder = nullptr;  // counted
        std::string m_name;          // in that folder
    };
    class Sink {
    public:
        // Something has happened to this file, or to the entry of its name in its folder.
        virtual void noticed(Target& target) = 0;
        // Notices were lost: something may have happened to any file.
        virtual void lost() = 0;

    protected:
        ~Sink() = default;
    };

    InotifyWatch() = default;
    InotifyWatch(const InotifyWatch&) = delete;
    InotifyWatch& operator=(const InotifyWatch&) = delete;
    ~InotifyWatch();

    // Fails: an errno value; EMFILE when the user has no more instances or the process no more descriptors.
    int open();
    // Ends all watches; the targets must be gone or forgotten.
    void close();
    int fd() const { return m_fd; }

    // Watches the file that is at this absolute path now, and its folder. Fails: an errno value; ENOSPC when no watches
    // are left. What could be set stays set.
    int watch(Target& target, const std::string& path);
    // The same for a file that isn't there: only its folder, whose name it will come back under.
    int watchFolder(Target& target, const std::string& path);
    void unwatch(Target& target);
    // True while both watches of the target stand.
    static bool isComplete(const Target& target);
    // Takes the notices that have come. The sink must not change the watches meanwhile.
    void readEvents(Sink& sink);

private:
    void dropFile(Target& target);
    void leaveFolder(Target& target);
    int joinFolder(Target& target, const std::string& folder, const std::string& name);
    Folder* findFolder(const std::string& path, int& error);
    void forgetFolder(Folder& folder);
    void fileEvent(int wd, unsigned mask, Sink& sink);
    void folderEvent(Folder& folder, unsigned mask, const char* name, Sink& sink);

    int m_fd = -1;
    std::unordered_multimap<int, Target*> m_files;      // by watch
    std::unordered_map<int, Folder*> m_folders;         // by watch, counted by their files
    std::unordered_map<std::string, Folder*> m_byPath;  // several spellings may lead to one folder
};
