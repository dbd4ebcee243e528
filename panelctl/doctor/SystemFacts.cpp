#include "panelctl/doctor/SystemFacts.h"

#include "panelctl/doctor/PanelRule.h"
#include "panelctl/session/UsbNode.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/usbdevice_fs.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

// As udev orders them: the first that has a file of some name hides the others'.
constexpr std::array<const char*, 5> ruleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                                 "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                                 "/lib/udev/rules.d"};

struct Closing {
    void operator()(DIR* folder) const { closedir(folder); }
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, Closing>;

File openText(const std::string& path)
{
    return File(std::fopen(path.c_str(), "re"));
}

// What is in a folder, sorted; the error is errno.
std::vector<std::string> listFolder(const std::string& path, int& error)
{
    std::vector<std::string> names;
    errno = 0;
    const std::unique_ptr<DIR, Closing> folder(opendir(path.c_str()));
    error = folder ? 0 : errno;
    if (folder)
        while (const dirent* const entry = readdir(folder.get())) // NOLINT(concurrency-mt-unsafe): a stream of its own
            if (entry->d_name[0] != '.')
                names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> listFolder(const std::string& path)
{
    int ignored = 0;
    return listFolder(path, ignored);
}

std::string targetOf(const std::string& link)
{
    std::array<char, 4096> buffer{};
    const ssize_t length = readlink(link.c_str(), buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string firstLineOf(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::string lastPartOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// "crw-rw----"
std::string formatMode(mode_t mode)
{
    static constexpr char letters[] = "rwxrwxrwx";
    std::string text = S_ISCHR(mode) ? "c" : "-";
    for (unsigned int bit = 0; bit < 9; ++bit)
        text += (mode & (0400U >> bit)) != 0 ? letters[bit] : '-';
    return text;
}

bool isNumber(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](unsigned char digit) { return std::isdigit(digit) != 0; });
}

bool isKnown(const std::vector<std::string>& knownIds, const std::string& id)
{
    return std::find(knownIds.begin(), knownIds.end(), id) != knownIds.end();
}

// By the node too: a panel that is plugged in anew has another.
bool contains(const std::vector<PanelFacts>& panels, const PanelFacts& panel)
{
    return std::any_of(panels.begin(), panels.end(), [&panel](const PanelFacts& other) {
        return other.place == panel.place && other.node.path == panel.node.path;
    });
}

std::vector<PanelFacts> without(const std::vector<PanelFacts>& panels, const std::vector<PanelFacts>& excluded)
{
    std::vector<PanelFacts> rest;
    std::copy_if(panels.begin(), panels.end(), std::back_inserter(rest),
                 [&excluded](const PanelFacts& panel) { return !contains(excluded, panel); });
    return rest;
}

// Anything but a plain file is not read: it could be one that never ends.
void readRule(const std::string& path, RuleFile& rule)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        rule.error = errno;
    } else if (S_ISREG(status.st_mode)) {
        std::array<char, 4096> buffer{};
        ssize_t length = 0;
        while ((length = read(descriptor, buffer.data(), buffer.size())) > 0)
            rule.text.append(buffer.data(), static_cast<std::size_t>(length));
        rule.error = length < 0 ? errno : 0;
        rule.isMasked = rule.error == 0 && rule.text.empty();
    } else if (S_ISCHR(status.st_mode)) {
        rule.isMasked = true;
    } else {
        rule.error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    if (descriptor >= 0)
        close(descriptor);
}

PanelFacts nameDevice(const std::string& place, const std::string& id)
{
    PanelFacts device;
    device.place = place;
    device.id = id;
    return device;
}

// The vendor or the product of a panel.
bool isAkin(const DoctorFacts& facts, const std::string& id)
{
    return std::any_of(facts.knownIds.begin(), facts.knownIds.end(), [&id](const std::string& known) {
        return id.compare(0, 5, known, 0, 5) == 0 || id.compare(4, 5, known, 4, 5) == 0;
    });
}

// That it may be read and written, as the library has to.
std::optional<std::uint32_t> askCapabilities(const std::string& node)
{
    const int descriptor = open(node.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    std::uint32_t capabilities = 0;
    const int result = ioctl(descriptor, USBDEVFS_GET_CAPABILITIES, &capabilities);
    close(descriptor);
    return result == 0 ? std::optional(capabilities) : std::nullopt;
}

// A node by what it is, as its path may be a link.
struct FileIdentity {
    explicit FileIdentity(const std::string& path)
    {
        struct stat status {};
        if (path.empty() || stat(path.c_str(), &status) != 0)
            return;
        device = status.st_dev;
        number = status.st_ino;
    }
    bool operator==(const FileIdentity& other) const
    {
        return number != 0 && number == other.number && device == other.device;
    }

    dev_t device = 0;
    ino_t number = 0;
};

} // namespace

void SystemFacts::addSystem(DoctorFacts& facts) const
{
    facts.root = m_places.root;
    facts.hasUdevd = isUdevdThere();
    facts.ownRule = PanelRule::text;
    facts.rule = findRule();
    facts.ruleFolder = ruleFolders.front();
    facts.isRoot = geteuid() == 0;
    facts.user = nameUser(geteuid());
    facts.groups.resize(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    facts.groups.resize(
        static_cast<std::size_t>(std::max(getgroups(static_cast<int>(facts.groups.size()), facts.groups.data()), 0)));
    facts.groups.push_back(getegid());
    facts.allGroups = readGroups();
}

// By its socket while somebody has it open: the file alone outlives a udevd that was killed.
bool SystemFacts::isUdevdThere() const
{
    const std::string socket = " " + m_places.root + "/run/udev/control";
    std::ifstream sockets(m_places.proc + "/net/unix");
    for (std::string line; std::getline(sockets, line);)
        if (line.size() > socket.size() && line.compare(line.size() - socket.size(), socket.size(), socket) == 0)
            return true;
    return false;
}

std::optional<RuleFile> SystemFacts::findRule() const
{
    for (const char* const folder : ruleFolders) {
        const std::string path = std::string(folder) + "/" + PanelRule::fileName;
        RuleFile rule;
        rule.path = path;
        readRule(m_places.root + path, rule);
        if (rule.error != ENOENT && rule.error != ENOTDIR)
            return rule;
    }
    return std::nullopt;
}

std::vector<GroupFacts> SystemFacts::readGroups() const
{
    std::vector<GroupFacts> groups;
    const File file = openText(m_places.root + "/etc/group");
    if (!file)
        return groups;
    while (const group* const entry = fgetgrent(file.get())) { // NOLINT(concurrency-mt-unsafe): the main thread's alone
        groups.push_back({entry->gr_name, entry->gr_gid, {}});
        for (char** member = entry->gr_mem; *member != nullptr; ++member)
            groups.back().members.emplace_back(*member);
    }
    return groups;
}

std::string SystemFacts::nameUser(uid_t user) const
{
    const File file = openText(m_places.root + "/etc/passwd");
    if (file)
        while (const passwd* const entry = fgetpwent(file.get())) // NOLINT(concurrency-mt-unsafe): as above
            if (entry->pw_uid == user)
                return entry->pw_name;
    return user == 0 ? "root" : "uid " + std::to_string(user);
}

std::string SystemFacts::nameGroup(gid_t number) const
{
    for (const GroupFacts& group : readGroups())
        if (group.number == number)
            return group.name;
    return std::to_string(number);
}

std::vector<PanelFacts> SystemFacts::listPanels(const std::vector<std::string>& knownIds) const
{
    std::vector<PanelFacts> panels;
    for (const std::string& place : listFolder(m_places.sysfs)) {
        const std::string id = readId(place);
        if (!isKnown(knownIds, id))
            continue;
        panels.push_back(nameDevice(place, id));
        panels.back().node.path = UsbNode::locate(place, m_places.sysfs, m_places.dev);
    }
    return panels;
}

void SystemFacts::sortOut(DoctorFacts& facts, const std::vector<PanelFacts>& atStart) const
{
    const std::vector<PanelFacts> now = listPanels(facts.knownIds);
    facts.departed = without(atStart, now);
    facts.newcomers = without(now, atStart);
    const std::vector<PanelFacts> looked = std::move(facts.panels);
    facts.panels.clear();
    for (const PanelFacts& panel : looked)
        if (contains(atStart, panel) && contains(now, panel))
            facts.panels.push_back(panel);
}

std::string SystemFacts::readId(const std::string& place) const
{
    return readAttribute(place, "idVendor") + ":" + readAttribute(place, "idProduct");
}

void SystemFacts::addDevices(DoctorFacts& facts) const
{
    for (const std::string& place : listFolder(m_places.sysfs)) {
        const std::string id = readId(place);
        if (id.size() != sizeof "dead:beef" - 1)
            continue; // an interface
        if (isKnown(facts.knownIds, id))
            facts.panels.push_back(examine(place, id));
        else if (isAkin(facts, id))
            facts.strangers.push_back(nameDevice(place, id));
        else if (readAttribute(place, "bDeviceClass") != "09")
            ++facts.otherDevices;
    }
}

PanelFacts SystemFacts::examine(const std::string& place, const std::string& id) const
{
    PanelFacts panel = nameDevice(place, id);
    panel.node = examineNode(place);
    panel.interface =
        place + ":" + readAttribute(place, "bConfigurationValue") + "." + std::to_string(PanelLink::interfaceNumber);
    panel.driver = lastPartOf(targetOf(m_places.sysfs + "/" + panel.interface + "/driver"));
    panel.powerControl = readAttribute(place, "power/control");
    panel.capabilities = askCapabilities(panel.node.path);
    return panel;
}

NodeFacts SystemFacts::examineNode(const std::string& place) const
{
    NodeFacts node;
    node.path = UsbNode::locate(place, m_places.sysfs, m_places.dev);
    if (node.path.empty())
        return node;
    node.error = access(node.path.c_str(), R_OK | W_OK) == 0 ? 0 : errno;
    struct stat status {};
    if (stat(node.path.c_str(), &status) == 0)
        node.access = formatMode(status.st_mode) + " " + nameUser(status.st_uid) + " " + nameGroup(status.st_gid);
    return node;
}

std::string SystemFacts::readAttribute(const std::string& place, const std::string& attribute) const
{
    return firstLineOf(m_places.sysfs + "/" + place + "/" + attribute);
}

void SystemFacts::addHolders(DoctorFacts& facts) const
{
    const std::string own = std::to_string(getpid());
    for (const std::string& process : listFolder(m_places.proc)) {
        if (!isNumber(process) || process == own)
            continue;
        const std::string folder = m_places.proc + "/" + process + "/fd";
        int error = 0;
        std::vector<FileIdentity> devices;
        for (const std::string& file : listFolder(folder, error)) {
            const std::string path = std::string(folder).append("/").append(file);
            if (isDeviceFile(path))
                devices.emplace_back(path);
        }
        facts.hasHiddenProcesses = facts.hasHiddenProcesses || error == EACCES || error == EPERM;
        for (PanelFacts& panel : facts.panels)
            if (std::find(devices.begin(), devices.end(), FileIdentity(panel.node.path)) != devices.end())
                panel.holders.push_back(describeProcess(process));
    }
}

// By what the link says: a look at a file on a network drive may take for ever.
bool SystemFacts::isDeviceFile(const std::string& link) const
{
    return targetOf(link).compare(0, m_places.dev.size() + 1, m_places.dev + "/") == 0;
}

// Of this process, by the lines "PPid:" of /proc. No more steps than a damaged table needs to
// come to an end.
bool SystemFacts::isAncestor(const std::string& process) const
{
    static const std::string key = "PPid:\t";
    std::string current = std::to_string(getpid());
    for (int step = 0; step < 1000 && !current.empty() && current != "0"; ++step) {
        std::ifstream file(m_places.proc + "/" + current + "/status");
        current.clear();
        for (std::string line; current.empty() && std::getline(file, line);)
            if (line.compare(0, key.size(), key) == 0)
                current = line.substr(key.size());
        if (current == process)
            return true;
    }
    return false;
}

NodeHolder SystemFacts::describeProcess(const std::string& process) const
{
    const std::string folder = m_places.proc + "/" + process;
    struct stat status {};
    const bool isThere = stat(folder.c_str(), &status) == 0;
    const std::string name = firstLineOf(folder + "/comm");
    return {static_cast<pid_t>(std::stol(process)), name, isThere ? nameUser(status.st_uid) : "unknown",
            name == "panelsim" && isAncestor(process)};
}

} // namespace Vantor
