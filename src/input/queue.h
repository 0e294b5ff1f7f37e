// The input stream's token queue: the parsed tokens waiting for a reader,
// the check a reader makes of the head, and whether the reader wants text
// whole.
#pragma once

#include <deque>
#include <memory>
#include <typeinfo>

#include "xmlstream.h"

// Raises when token is a queued error (its text is the whole report, and it
// stays where it is), or when expected is not XT_ILLEGAL and the token is of
// another type (message 27301 naming both types).
void NeedTokenType(const XmlToken* token, XmlToken_t expected);

// Parsed tokens in document order; the head is the next one a reader takes.
// The queue owns every token in it and frees what is left when it dies.
class XmlTokenQueue {
 public:
  XmlTokenQueue() = default;
  ~XmlTokenQueue() { Clear(); }
  XmlTokenQueue(const XmlTokenQueue&) = delete;
  XmlTokenQueue& operator=(const XmlTokenQueue&) = delete;

  bool Empty() const { return m_tokens.empty(); }
  std::size_t Size() const { return m_tokens.size(); }
  XmlToken* Head() const { return m_tokens.front(); }
  XmlToken* Tail() const { return m_tokens.back(); }
  // Removes the head and hands it to the caller, who owns it from then on.
  XmlToken* Pop() {
    XmlToken* head = m_tokens.front();
    m_tokens.pop_front();
    return head;
  }
  // Removes and frees the head.
  void DropHead() { delete Pop(); }
  // Removes and frees the tail.
  void DropTail() {
    delete m_tokens.back();
    m_tokens.pop_back();
  }
  // Appends a token at the tail; the queue owns it.
  void Push(std::unique_ptr<XmlToken> token) {
    m_tokens.push_back(token.get());
    token.release();
  }
  // Puts a token before all others, so it is the next one read.
  void PushFront(std::unique_ptr<XmlToken> token) {
    m_tokens.push_front(token.get());
    token.release();
  }
  // Appends an error token whose text is the whole report, place included.
  // This is the one way a failure met while parsing reaches a reader.
  void PushError(const Obx_String& text) { Push(std::unique_ptr<XmlToken>(new XmlError(text))); }
  // The head must be of the expected type (see NeedTokenType).
  void NeedHeadType(XmlToken_t expected) const { NeedTokenType(m_tokens.front(), expected); }
  // Frees every token.
  void Clear();

  // Whether the tokens queued already answer a reader, whatever is still to
  // come: two tokens do, and so does one, unless the reader wants text whole
  // and the one token is text, which the next chunk may continue.
  bool Answers() const {
    const std::size_t count = m_tokens.size();
    return count > 1 || (count == 1 && !(m_accumulate && IsText(m_tokens.back())));
  }

  // While it lives, the reader wants character data whole; the previous
  // wish comes back however the read ends.
  class WholeText {
   public:
    explicit WholeText(XmlTokenQueue& queue) : m_queue(queue), m_previous(queue.m_accumulate) {
      queue.m_accumulate = true;
    }
    ~WholeText() { m_queue.m_accumulate = m_previous; }
    WholeText(const WholeText&) = delete;
    WholeText& operator=(const WholeText&) = delete;

   private:
    XmlTokenQueue& m_queue;
    bool m_previous;
  };

 private:
  // Whether a token is character data (or an error, which is made as such).
  // The tags the parser makes are told apart without a cast through the
  // hierarchy, which this test runs for nearly every token read. The type
  // records are compared by address: the library's own classes have one
  // record each, and comparing them by value would compare their names
  // whenever the addresses differ, which for a tag is every time. Any other
  // class is left to the cast.
  static bool IsText(const XmlToken* token) {
    const std::type_info* type = &typeid(*token);
    if (type == &typeid(XmlSTag) || type == &typeid(XmlETag)) return false;
    if (type == &typeid(XmlCharData)) return true;
    return dynamic_cast<const XmlCharData*>(token) != nullptr;
  }

  std::deque<XmlToken*> m_tokens;
  // Set while a reader wants character data whole (see WholeText).
  bool m_accumulate = false;
};
