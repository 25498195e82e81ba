/**
 * @file json_answers.h
 * @brief Answers as JSON. The keys are an interface, which corvanectl(1) lists.
 */
#ifndef CORVANECTL_JSON_ANSWERS_H
#define CORVANECTL_JSON_ANSWERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"

/** Whether the answer to this request can be told as JSON. */
bool HasJsonForm(const std::vector<std::string> &words);
/** @return null if the text is not what this request is answered with. */
CJsonPtr JsonOf(const std::vector<std::string> &words, const std::string &text);

/** Whether this tells of a life that is not predicted yet. */
bool TellsPending(const cJSON *answer);
/** It never will be: corrects that. */
void TellNoPrediction(cJSON *answer);

/** Adds a whole number, digit for digit; without a value it is null. */
void AddOptional(cJSON *object, const char *key, const std::optional<uint64_t> &value);
/** Adds a decimal; without a value it is null. */
void AddOptional(cJSON *object, const char *key, const std::optional<double> &value);
/** Adds a text; an empty one is null. */
void AddText(cJSON *object, const char *key, const std::string &text);
/** @return the new last element of an array. */
cJSON *AddElement(cJSON *array);
/** One line. */
std::string PrintedOnALine(const cJSON *tree);
/** For people. */
std::string Printed(const cJSON *tree);

#endif
