#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"
#include "help.h"
#include "json_answers.h"
#include "request_keys.h"

namespace {

constexpr int kSecondsMax = 3600;
constexpr int kCountMax = 1000000;

/** Takes the words that are commands of the client's own. @return what is wrong with the words, or nothing. */
std::string TakeAction(Options &options)
{
    std::vector<std::string> &words = options.words;
    if (words.empty()) {
        return "no command";
    }
    const std::string first = words.front();
    if (first == "help") {
        options.action = Options::Action::HELP;
        words.erase(words.begin());
        return "";
    }
    if (first == "list" || first == "watch") {
        options.action = first == "list" ? Options::Action::LIST : Options::Action::WATCH;
        return words.size() == 1 ? "" : first + " takes no words behind it, but got " + words[1];
    }
    if (const std::vector<std::string> split = WordsOfRequest(words); KnowsKeys(split)) {
        words = split;
    }
    return "";
}

/** @return what is wrong with a request, or nothing. */
std::string CheckRequest(const Options &options)
{
    const std::vector<std::string> &words = options.words;
    if (!std::all_of(words.begin(), words.end(), [](const std::string &word) { return !word.empty(); })) {
        return "a word of the command is empty";
    }
    if (RequestText(words).size() > CORVANE_CLI::XmlModule::PARAM_LEN_MAX) {
        return "the command is longer than 1 MiB";
    }
    if (!IsCmdStrSecurity(RequestText(words))) {
        return "the command holds a character that is not sent: one of | ; & $ > < ` \\ ! \" or a line end";
    }
    if (words.size() < 2) {
        return words.front() + " alone is no command: an action, what it is for, then KEY=VALUE pairs";
    }
    if (words.front().size() >= CORVANE_CLI::CLI_ACTION_NAME_SIZE) {
        return "the action " + words.front() + " is longer than 9 characters";
    }
    if (options.json && !HasJsonForm(words)) {
        return "--json goes with list, watch and the show commands, not with " + RequestText(words);
    }
    return "";
}

std::string RefuseEmpty(std::string &text)
{
    return text.empty() ? "the path is empty" : "";
}

/** What stands behind "--prefix=" is its value even if that is nothing; the parser would take the next word. */
void RefuseBareEquals(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        const std::string_view word = argv[i];
        if (word == "--prefix=" || word == "--socket=") {
            throw CLI::ValidationError(std::string(word.substr(0, word.size() - 1)), "the path is empty");
        }
    }
}

std::string Check(const Options &options)
{
    switch (options.action) {
    case Options::Action::HELP:
        return HelpFor(options.words).empty() ? "no help for " + RequestText(options.words) : "";
    case Options::Action::REQUEST:
        return CheckRequest(options);
    default:
        return "";
    }
}

} // namespace

bool ParseOptions(int argc, char **argv, Options &options, std::string &error)
{
    CLI::App app;
    bool help = false;
    bool version = false;
    app.set_help_flag();
    app.add_flag("-h,--help", help);
    app.add_flag("-V,--version", version);
    const CLI::Validator path(RefuseEmpty, "");
    app.add_option("-p,--prefix", options.prefix)->check(path);
    app.add_option("-s,--socket", options.socket)->check(path);
    const auto seconds = CLI::Range(1, kSecondsMax).description("1 to 3600");
    app.add_option("-t,--timeout", options.timeoutSeconds)->check(seconds)->type_name("SECONDS");
    app.add_flag("-j,--json", options.json);
    const CLI::Option *interval =
        app.add_option("-i,--interval", options.intervalSeconds)->check(seconds)->type_name("SECONDS");
    const CLI::Option *count = app.add_option("-n,--count", options.count)->check(CLI::Range(1, kCountMax));
    app.add_option("words", options.words);
    try {
        RefuseBareEquals(argc, argv);
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        error = std::string(problem.what()) + "; see corvanectl --help";
        return false;
    }
    if (version) {
        options.action = Options::Action::VERSION;
        return true;
    }
    if (help && options.words.empty()) {
        options.action = Options::Action::HELP;
        return true;
    }
    std::string page = "--help";
    error = TakeAction(options);
    if (help) {
        options.action = Options::Action::HELP;
        error.clear();
    }
    if (error.empty()) {
        error = Check(options);
    }
    if (error.empty() && options.action != Options::Action::WATCH && (interval->count() > 0 || count->count() > 0)) {
        error = "--interval and --count go with watch";
    }
    if (error.empty() && options.action == Options::Action::REQUEST) {
        error = CheckKeys(options.words);
        page = "help " + options.words[0] + " " + options.words[1];
    }
    if (!error.empty()) {
        error += "; see corvanectl " + page;
    }
    return error.empty();
}
