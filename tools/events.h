#pragma once

#include "tools/output.h"

// What happens in the course of a command that goes on: a line an event for programs or for people, or all of them in
// the document at the end.
class Events {
public:
    explicit Events(Output& output) : m_output(output) {}
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    // `event` has the member "event", `text` is the line without its end. Fails: false when standard output takes no
    // more, which has been told.
    bool add(const Json& event, const std::string& text);
    // So far, if a document is wanted.
    const Json& list() const { return m_list; }

private:
    Output& m_output;
    Json m_list = Json::array();
};
