;; Whatever asks for the password gets a fresh token.
(require 'auth-source)
(require 'subr-x)

(defun qvr-oauth2-token ()
  (with-temp-buffer
    (unless (eq 0 (call-process "qvr-oauth2" nil '(t nil) nil "token" "@PROVIDER@" "@USER@"))
      (error "No token; try in a terminal: qvr-oauth2 token @PROVIDER@ @USER@"))
    (string-trim (buffer-string))))

(cl-defun qvr-oauth2-search (&key host &allow-other-keys)
  (when (seq-intersection (ensure-list host) '("@IMAP_HOST@" "@SMTP_HOST@"))
    (list (list :user "@USER@" :secret #'qvr-oauth2-token))))

(defun qvr-oauth2-backend (entry)
  (when (eq entry 'qvr-oauth2)
    (auth-source-backend :source "." :type 'qvr-oauth2 :search-function #'qvr-oauth2-search)))

(add-hook 'auth-source-backend-parser-functions #'qvr-oauth2-backend)
(add-to-list 'auth-sources 'qvr-oauth2)

;; Sending
(require 'smtpmail)
(add-to-list 'smtpmail-auth-supported 'xoauth2)
(setq user-mail-address "@USER@"
      message-send-mail-function #'smtpmail-send-it
      smtpmail-smtp-server "@SMTP_HOST@"
      smtpmail-smtp-service @SMTP_PORT@
      smtpmail-stream-type 'starttls
      smtpmail-smtp-user "@USER@"
      gnutls-verify-error t)

;; Reading, with Gnus
(setq gnus-select-method
      '(nnimap "work"
               (nnimap-address "@IMAP_HOST@")
               (nnimap-server-port @IMAP_PORT@)
               (nnimap-stream ssl)
               (nnimap-user "@USER@")
               (nnimap-authenticator xoauth2)))

;; Emacs 28 breaks the login of a long token into lines, which no server takes.
(define-advice nnimap-login (:around (login user token) on-one-line)
  (if (eq nnimap-authenticator 'xoauth2)
      (nnimap-command
       "AUTHENTICATE XOAUTH2 %s"
       (base64-encode-string (format "user=%s\001auth=Bearer %s\001\001" user token) t))
    (funcall login user token)))
