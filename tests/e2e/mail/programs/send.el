;; Writes a letter in message mode and sends it.
(message-mail "friend@example.org" "from-emacs")
(message-goto-body)
(insert "Hello.\n")
(message-send)
