// Light or dark as the system has it, until the reader chooses.
(function () {
    var chosen = null;
    try {
        chosen = localStorage.getItem("theme");
    } catch (refused) { // a page from a file may have no storage
    }
    var dark = chosen ? chosen === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
    document.documentElement.dataset.theme = dark ? "dark" : "light";
})();

function switchTheme() {
    var theme = document.documentElement.dataset.theme === "dark" ? "light" : "dark";
    document.documentElement.dataset.theme = theme;
    try {
        localStorage.setItem("theme", theme);
    } catch (refused) { // then it holds for this page alone
    }
}
