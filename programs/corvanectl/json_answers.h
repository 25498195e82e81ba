/**
 * @file json_answers.h
 * @brief Answers as JSON. The keys are an interface, which corvanectl(1) lists.
 */
#ifndef CORVANECTL_JSON_ANSWERS_H
#define CORVANECTL_JSON_ANSWERS_H

#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"

/** Whether the answer to this request can be told as JSON. */
bool HasJsonForm(const std::vector<std::string> &words);
/** @return null if the text is not what this request is answered with. */
CJsonPtr JsonOf(const std::vector<std::string> &words, const std::string &text);

/** Adds a member; without a value it is null. */
template <typename Number>
void AddOptional(cJSON *object, const char *key, const Number &value)
{
    if (value) {
        (void)cJSON_AddNumberToObject(object, key, static_cast<double>(*value));
    } else {
        (void)cJSON_AddNullToObject(object, key);
    }
}
/** Adds a text; an empty one is null. */
void AddText(cJSON *object, const char *key, const std::string &text);
/** @return the new last element of an array. */
cJSON *AddElement(cJSON *array);
/** One line. */
std::string PrintedOnALine(const cJSON *tree);
/** For people. */
std::string Printed(const cJSON *tree);

#endif
