;; Opens Gnus as a person does, enters the inbox, and prints its first article.
(setq gnus-init-file nil
      gnus-use-dribble-file nil
      gnus-read-newsrc-file nil
      gnus-save-newsrc-file nil
      gnus-save-killed-list nil)
(gnus)
(gnus-group-list-all-groups 9)
(gnus-group-jump-to-group "INBOX")
(gnus-group-read-group t t)
(gnus-summary-goto-article 1 nil t)
(with-current-buffer gnus-original-article-buffer
  (princ (buffer-string)))
