document.getElementById('root').innerHTML='<h1>Собрано</h1>';
