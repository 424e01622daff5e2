// Theme, menu and search of the site. Everything works from files, without a server.
(function () {
    "use strict";
    var root = document.documentElement;
    var base = document.currentScript.src.replace(/[^/]*$/, "");
    var shownAtMost = 30;

    // A page that is opened from a file may have no storage.
    function remembered(key, value) {
        try {
            if (value !== undefined) {
                localStorage.setItem(key, value);
            }
            return localStorage.getItem(key);
        } catch (refused) {
            return null;
        }
    }

    var prefersDark = matchMedia("(prefers-color-scheme: dark)").matches;
    root.dataset.theme = remembered("theme") || (prefersDark ? "dark" : "light");

    function switchTheme() {
        root.dataset.theme = root.dataset.theme === "dark" ? "light" : "dark";
        remembered("theme", root.dataset.theme);
    }

    function loadIndex(whenLoaded) {
        if (window.searchIndex) {
            whenLoaded();
            return;
        }
        var script = document.createElement("script");
        script.src = base + "search-index.js";
        script.onload = whenLoaded;
        document.head.appendChild(script);
    }

    // Words of a question that say nothing about the answer, unless there are no others.
    var common = /^(a|an|and|are|at|be|by|can|do|does|for|have|how|i|if|in|is|it|know|my|of|on|or|the|there|to|use|was|what|when|which|why|with|you)$/;

    // The words of a phrase without punctuation and endings.
    function wordsOf(phrase) {
        var all = phrase.split(" ").map(function (word) {
            return word.replace(/^[("']+|[)"',.?!]+$/g, "");
        }).filter(Boolean);
        var telling = all.filter(function (word) {
            return !common.test(word);
        });
        return (telling.length > 0 ? telling : all).map(function (word) {
            return /^[a-z]{5,}$/.test(word) ? word.replace(/(ing|ed|s)$/, "") : word;
        });
    }

    // How well a section matches, 0 if it lacks all words. A section that lacks some counts little.
    function score(entry, phrase, words) {
        var title = entry[1].toLowerCase();
        var heading = entry[2].toLowerCase();
        var text = entry[3].toLowerCase();
        var sum = 0;
        var missing = 0;
        for (var i = 0; i < words.length; ++i) {
            var start = new RegExp("(^|[^a-z0-9])" + words[i].replace(/[^a-z0-9]/g, "\\$&"));
            var found = (heading.includes(words[i]) ? 10 : 0) + (title.includes(words[i]) ? 8 : 0) +
                (start.test(heading) ? 20 : 0) + (start.test(text) ? 4 : 0) +
                Math.min(text.split(words[i]).length - 1, 4);
            sum += found;
            missing += found === 0 ? 1 : 0;
        }
        return (sum + (heading.includes(phrase) ? 60 : 0) + (title.includes(phrase) ? 30 : 0) +
            (text.includes(phrase) ? 20 : 0)) / (1 + 10 * missing);
    }

    function marked(text, words) {
        var parts = document.createDocumentFragment();
        var pattern = words.map(function (word) {
            return (/^[a-z0-9]/.test(word) ? "\\b" : "") + word.replace(/[^a-z0-9]/g, "\\$&");
        }).join("|");
        text.split(new RegExp("(" + pattern + ")", "i")).forEach(function (part, number) {
            if (number % 2 === 1) {
                var mark = document.createElement("mark");
                mark.textContent = part;
                parts.appendChild(mark);
            } else {
                parts.appendChild(document.createTextNode(part));
            }
        });
        return parts;
    }

    function excerpt(text, phrase, words) {
        var lower = text.toLowerCase();
        var at = lower.indexOf(phrase);
        if (at < 0) {
            at = lower.indexOf(words[0]);
        }
        var from = Math.max(0, lower.lastIndexOf(" ", Math.max(0, at - 60)));
        var to = from + 200 < text.length ? text.lastIndexOf(" ", from + 200) : text.length;
        return (from > 0 ? "… " : "") + text.slice(from, to).trim() + (to < text.length ? " …" : "");
    }

    function resultItem(entry, phrase, words) {
        var item = document.createElement("li");
        var link = document.createElement("a");
        link.href = base + entry[0];
        link.appendChild(marked(entry[2] || entry[1], words));
        item.appendChild(link);
        if (entry[2]) {
            var page = document.createElement("small");
            page.textContent = entry[1];
            item.appendChild(page);
        }
        var text = document.createElement("p");
        text.appendChild(marked(excerpt(entry[3], phrase, words), words));
        item.appendChild(text);
        return item;
    }

    function search(query) {
        var results = document.getElementById("results");
        var article = document.querySelector("article");
        var phrase = query.trim().toLowerCase().replace(/\s+/g, " ");
        results.hidden = phrase === "";
        article.hidden = phrase !== "";
        results.textContent = "";
        if (phrase === "") {
            return;
        }
        var words = wordsOf(phrase);
        var found = window.searchIndex.map(function (entry) {
            return [score(entry, phrase, words), entry];
        }).filter(function (match) {
            return match[0] > 0;
        }).sort(function (a, b) {
            return b[0] - a[0];
        });
        var status = document.createElement("p");
        status.className = "status";
        status.setAttribute("role", "status");
        status.textContent = found.length === 0 ? "Nothing found" :
            found.length + (found.length === 1 ? " section" : " sections") +
            (found.length > shownAtMost ? ", best " + shownAtMost : "");
        results.appendChild(status);
        var list = document.createElement("ol");
        found.slice(0, shownAtMost).forEach(function (match) {
            list.appendChild(resultItem(match[1], phrase, words));
        });
        results.appendChild(list);
    }

    function openMenu(open) {
        root.classList.toggle("menu-open", open);
        document.getElementById("open-menu").setAttribute("aria-expanded", String(open));
    }

    document.addEventListener("DOMContentLoaded", function () {
        var field = document.getElementById("search");
        document.getElementById("theme").onclick = switchTheme;
        document.getElementById("open-menu").onclick = function () {
            openMenu(!root.classList.contains("menu-open"));
        };
        field.oninput = function () {
            openMenu(false);
            loadIndex(function () {
                search(field.value);
            });
        };
        field.onkeydown = function (event) {
            var first = document.querySelector("#results a");
            if (event.key === "Enter" && first) {
                location.href = first.href;
                field.value = "";
                search("");
            } else if (event.key === "Escape") {
                field.value = "";
                search("");
            }
        };
        document.getElementById("results").onclick = function (event) {
            if (event.target.closest("a")) { // the result may be on this page
                setTimeout(function () {
                    field.value = "";
                    search("");
                    location.href = location.href; // the heading moves when the page is shown again
                });
            }
        };
        document.addEventListener("keydown", function (event) {
            if (event.key === "/" && document.activeElement !== field) {
                event.preventDefault();
                field.focus();
            }
        });
        var current = document.querySelector("[aria-current]");
        if (current) {
            current.scrollIntoView({block: "center"});
            scrollTo(0, location.hash ? scrollY : 0);
        }
    });
})();
