// The words of sorvctl, each with what declares its options and carries it out.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace sorvctl {

class Session;

/// Carries out a word whose options have been read; the status of the process, or a Failure.
using Handler = std::function<int(Session&)>;
/// Declares the options of a word and answers what carries it out with them.
using Declaration = Handler (*)(CLI::App& word);

/// A row of the table of words.
struct Word {
  const char* name;  ///< words of a group are written after it, "prefs get"
  const char* help;
  const char* example;
  Declaration declare;
};

// Ports (PortWords.cpp, RegisterWord.cpp)
Handler declarePing(CLI::App& word);
Handler declareFind(CLI::App& word);
Handler declareSend(CLI::App& word);
Handler declareRegister(CLI::App& word);
// States and alerts (StateWords.cpp)
Handler declareList(CLI::App& word);
Handler declareStates(CLI::App& word);
Handler declareAlerts(CLI::App& word);
Handler declareSetState(CLI::App& word);
Handler declareSetAlert(CLI::App& word);
// Changes (WatchWords.cpp)
Handler declareWatch(CLI::App& word);
Handler declareRefresh(CLI::App& word);
// The host and its server (HostWords.cpp)
Handler declareHostInfo(CLI::App& word);
Handler declareHosts(CLI::App& word);
Handler declareTerminate(CLI::App& word);
Handler declareRestart(CLI::App& word);
// Preferences (PreferenceWords.cpp)
Handler declarePrefsGet(CLI::App& word);
Handler declarePrefsSet(CLI::App& word);
Handler declarePrefsKey(CLI::App& word);
Handler declarePrefsKeySet(CLI::App& word);
// Defaults of hosts (DefaultWords.cpp)
Handler declareDefaultsGet(CLI::App& word);
Handler declareDefaultsSet(CLI::App& word);
Handler declareDefaultsList(CLI::App& word);
// Conversions (ConvertWords.cpp)
Handler declareConvertDate(CLI::App& word);
Handler declareConvertTime(CLI::App& word);
Handler declareConvertMoney(CLI::App& word);
Handler declareConvertInteger(CLI::App& word);
Handler declareConvertHex(CLI::App& word);
Handler declareConvertInstant(CLI::App& word);

// The network (BrowseWords.cpp)
Handler declareBrowse(CLI::App& word);

}  // namespace sorvctl
