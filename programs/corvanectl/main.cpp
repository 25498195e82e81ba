/**
 * @file main.cpp
 * @brief corvanectl: the operator's view of the disks that corvaned watches.
 */
#include <cstdio>
#include <exception>

#include "config/corvane_prefix_path.h"
#include "disks.h"
#include "exit_codes.h"
#include "failure.h"
#include "help.h"
#include "json_answers.h"
#include "options.h"
#include "request_keys.h"
#include "screen.h"
#include "server.h"
#include "views.h"
#include "watch.h"

namespace {

constexpr const char *kSocketName = "/config/CLI_UDS.unix";

int Fail(int exitCode, const std::string &lines)
{
    (void)std::fflush(stdout);
    (void)std::fprintf(stderr, "corvanectl: %s", lines.c_str());
    return exitCode;
}

int Failed(const Answer &answer, const Server &server)
{
    std::string text;
    const int exitCode = ExplainFailure(answer, server, text);
    return Fail(exitCode, text);
}

int Print(const std::string &text)
{
    (void)std::fputs(text.c_str(), stdout);
    const std::string problem = FlushOutput();
    return problem.empty() ? EXIT_CODE_OK : Fail(EXIT_CODE_OTHER, problem + "\n");
}

/** @return the answer, or the one that failed. */
Answer AskForJson(const Server &server, const std::vector<std::string> &words, CJsonPtr &tree)
{
    const std::string request = RequestText(words);
    Answer answer = Ask(server, request);
    if (answer.outcome != Answer::Outcome::DONE) {
        return answer;
    }
    tree = JsonOf(words, answer.text);
    if (tree == nullptr) {
        return Unreadable(request);
    }
    if (!TellsPending(tree.get())) {
        return answer;
    }
    // Whether a life will ever be predicted is a matter of the type, which this answer does not hold.
    const std::string identityRequest = "show disk_info " + words.back();
    answer = Ask(server, identityRequest);
    const auto identity = ReadDiskIdentity(answer.text);
    if (answer.outcome == Answer::Outcome::DONE && !identity) {
        return Unreadable(identityRequest);
    }
    if (identity && !IsLifePredicted(identity->type)) {
        TellNoPrediction(tree.get());
    }
    return answer;
}

int Request(const Server &server, const Options &options)
{
    if (options.json) {
        CJsonPtr tree;
        const Answer answer = AskForJson(server, options.words, tree);
        return answer.outcome == Answer::Outcome::DONE ? Print(Printed(tree.get())) : Failed(answer, server);
    }
    const Answer answer = Ask(server, RequestText(options.words));
    const int printed = Print(answer.text); // a refusal may have a text as well
    return printed != EXIT_CODE_OK || answer.outcome == Answer::Outcome::DONE ? printed : Failed(answer, server);
}

int List(const Server &server, const Options &options)
{
    std::vector<Disk> disks;
    const Answer answer = Disks(server, false).Collect(disks);
    if (answer.outcome != Answer::Outcome::DONE) {
        return Failed(answer, server);
    }
    if (options.json) {
        return Print(Printed(ListJson(disks).get()));
    }
    std::string text;
    for (const std::string &row : ListTable(disks, Screen().TablePage())) {
        text += row + "\n";
    }
    if (const std::string note = TableNote(disks); !note.empty()) {
        text += note + "\n";
    }
    return Print(text);
}

/** The prefix by the program's place. */
std::string OwnPrefix()
{
    return InitCorvanePrefixPathInd() == 0 ? GetPrefixPath() : "";
}

int Run(const Options &options)
{
    switch (options.action) {
    case Options::Action::HELP:
        return Print(HelpFor(options.words));
    case Options::Action::VERSION:
        return Print("corvanectl " CORVANE_VERSION "\n");
    default:
        break;
    }
    const std::string own = OwnPrefix();
    const std::string prefix = options.prefix.empty() ? own : options.prefix;
    SetCataloguePrefix(prefix, own);
    const Server server = {options.socket.empty() ? prefix + kSocketName : options.socket, options.timeoutSeconds};
    switch (options.action) {
    case Options::Action::LIST:
        return List(server, options);
    case Options::Action::WATCH:
        return Watch(server, options);
    default:
        return Request(server, options);
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    std::string error;
    try {
        if (!ParseOptions(argc, argv, options, error)) {
            return Fail(EXIT_CODE_USAGE, error + "\n");
        }
        return Run(options);
    } catch (const std::exception &problem) {
        return Fail(EXIT_CODE_OTHER, problem.what() + std::string("\n")); // no memory, or no thread
    }
}
